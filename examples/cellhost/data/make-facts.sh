#!/bin/sh
# Makes facts.csv from the package index of the Debian system on which it runs: one row for each
# available package. Dimensions are section, priority and architecture; the measure is the
# installed size in KiB.
#
#   ./make-facts.sh > facts.csv
#
# The index is the one that `apt-get update` last fetched, and differs from day to day. Run
# make-answers.awk afterwards to make new answers.
set -eu
export LC_ALL=C

apt-cache dumpavail | awk -F ': ' '
  BEGIN { print "section,priority,architecture,installed-size" }
  $1 == "Section"        { section = $2 }
  $1 == "Priority"       { priority = $2 }
  $1 == "Architecture"   { architecture = $2 }
  $1 == "Installed-Size" { size = $2 }
  $0 == ""               { package() }
  END                    { package() }

  # A package without an installed size counts as 0. The three names contain no comma and no quote.
  function package() {
    if (section != "" && priority != "" && architecture != "")
      print section "," priority "," architecture "," size + 0
    section = priority = architecture = size = ""
  }'
