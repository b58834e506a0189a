# Answers a query file from a fact table, without any code of the server. The server must give the
# same answers. PUTs in front of the queries change cells. Plain POSIX awk; quotes in facts and
# queries are not supported.
#
#   LC_ALL=C awk -f make-answers.awk facts.csv queries.txt > answers.txt
#   LC_ALL=C awk -f make-answers.awk facts.csv puts.txt queries.txt > answers-after.txt

BEGIN { FS = "," }

{ sub(/\r$/, "") }

/"/ { printf "%s:%d: quotes are more than this script reads\n", FILENAME, FNR > "/dev/stderr"
      exit 1 }

# ---- First file: the facts ----

FNR == NR && FNR == 1 {
  dimensions = NF - 1
  for (d = 1; d <= dimensions; d++) dimension[$d] = d
  next
}

FNR == NR && NF > 1 {
  key = $1
  for (d = 1; d <= dimensions; d++) {
    if (d > 1) key = key SUBSEP $d
    sum[d, $d] += $NF
    if (!((d, $d) in known)) {
      known[d, $d] = 1
      member[d, ++members[d]] = $d
    }
  }
  cell[key] += $NF
  next
}

FNR == NR { next }

# ---- Further files: PUTs and queries ----

{ gsub(/^[ \t]+|[ \t]+$/, "") }
$0 == "" || /^#/ { next }
{ words = split($0, word, /[ \t]+/) }

word[1] == "PUT"  { put(word[words]) }
word[1] == "SUM"  { print $0 ": " sumOf(substr($0, index($0, word[2]))) }
word[1] == "TOP"  { print $0 ": " topOf(word[2], word[3] + 0) }
word[1] == "CELL" { print $0 ": " cellOf() }

function put(value,   d, key) {
  if (words - 2 != dimensions) refuse("a cell has " dimensions " members")
  for (d = 1; d <= dimensions; d++) {
    if (!((d, word[d + 1]) in known)) refuse("unknown member " word[d + 1])
    key = d == 1 ? word[2] : key SUBSEP word[d + 1]
  }
  for (d = 1; d <= dimensions; d++) sum[d, word[d + 1]] += value - cell[key]
  cell[key] = value + 0
}

function refuse(why) {
  printf "%s:%d: %s\n", FILENAME, FNR, why > "/dev/stderr"
  exit 1
}

function number(value) {
  if (value == 0) return "0"
  return value == int(value) ? sprintf("%.0f", value) : sprintf("%.12g", value)
}

function sumOf(pair,   equals, name, d) {
  equals = index(pair, "=")
  name = substr(pair, 1, equals - 1)
  if (!(name in dimension)) return "unknown dimension"
  d = dimension[name]
  name = substr(pair, equals + 1)
  return (d, name) in sum ? number(sum[d, name]) : "unknown member"
}

# Selects the largest remaining member, count times: slow but simple.
function topOf(name, count,   d, i, best, taken, line) {
  if (!(name in dimension)) return "unknown dimension"
  d = dimension[name]
  split("", taken)
  while (count-- > 0) {
    best = 0
    for (i = 1; i <= members[d]; i++)
      if (!(i in taken) && (best == 0 || before(d, member[d, i], member[d, best]))) best = i
    if (best == 0) break
    taken[best] = 1
    line = line (line == "" ? "" : ", ") member[d, best] " " number(sum[d, member[d, best]])
  }
  return line
}

function before(d, a, b) {
  if (sum[d, a] != sum[d, b]) return sum[d, a] > sum[d, b]
  return (a "") < (b "")
}

function cellOf(   d, key) {
  if (words - 1 != dimensions) return "needs " dimensions " members, one of each dimension"
  for (d = 1; d <= dimensions; d++) {
    if (!((d, word[d + 1]) in known)) return "unknown member"
    key = d == 1 ? word[2] : key SUBSEP word[d + 1]
  }
  return key in cell ? number(cell[key]) : "no data"
}
