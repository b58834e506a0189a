#!/bin/sh
# Makes facts.csv from the package index of the Debian system it runs on: one row for each
# package that can be installed, with its section, priority and architecture as dimensions and
# its installed size in KiB as the measure.
#
#   ./make-facts.sh > facts.csv
#
# The index is whatever `apt-get update` last fetched, so another day gives other rows; make
# answers.txt anew with make-answers.awk afterwards.
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

  # A package for which the index gives no installed size counts 0. No name in the first three
  # has a comma or a quote in it.
  function package() {
    if (section != "" && priority != "" && architecture != "")
      print section "," priority "," architecture "," size + 0
    section = priority = architecture = size = ""
  }'
