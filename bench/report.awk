# Writes the figures of the benchmarks (see figures.h) as form=text, json, markdown or svg.
# Tables with a "bar" are for the document: markdown shows only these, svg draws the ratios of the first.

BEGIN { FS = "\t" }

/^#/ {
  table[++tables] = substr($1, 2)
  columns[tables] = NF - 1
  for (i = 2; i <= NF; i++) column[tables, i - 1] = $i
  next
}
{
  row = ++rows[tables]
  for (i = 1; i <= NF; i++) field[tables, row, i] = $i
}

END {
  for (t = 1; t <= tables; t++) found += rows[t]
  if (!found) { print "no row has such a name" > "/dev/stderr"; exit 1 }
  if (form == "json") json()
  else if (form == "svg") svg(1)
  else for (t = 1; t <= tables; t++) if (rows[t]) form == "text" ? text(t) : markdown(t)
}

function find(t, name,   i) {
  for (i = 1; i <= columns[t]; i++) if (column[t, i] == name) return i
  return 0
}

# 1234567 as 1,234,567
function grouped(value,   head, tail) {
  if (value !~ /^[0-9]+(\.[0-9]+)?$/) return value
  head = value; sub(/\..*/, "", head)
  tail = substr(value, length(head) + 1)
  while (length(head) > 3) {
    tail = "," substr(head, length(head) - 2) tail
    head = substr(head, 1, length(head) - 3)
  }
  return head tail
}

# Fills cell[1] to cell[result] with a row, or with the column names for row 0. A column "X by hand" shares the cell of
# "X".
function cells(t, row,   i, n, value) {
  for (i = 1; i <= columns[t]; i++) {
    value = row ? grouped(field[t, row, i]) : column[t, i]
    if (i > 1 && column[t, i] == column[t, i - 1] " by hand") cell[n] = cell[n] " / " (row ? value : "by hand")
    else cell[++n] = value
  }
  return n
}

function text(t,   row, i, n, line, ratio, width) {
  for (row = 0; row <= rows[t]; row++) {
    n = cells(t, row)
    for (i = 1; i <= n; i++) if (row == 0 || length(cell[i]) > width[i]) width[i] = length(cell[i])
  }
  printf "\n%s\n", table[t]
  for (row = 0; row <= rows[t]; row++) {
    cells(t, row)
    line = sprintf("%-" width[1] "s", cell[1])
    for (i = 2; i <= n; i++) line = line sprintf("  %" width[i] "s", cell[i])
    print line
  }
  ratio = find(t, "ratio")
  if (ratio && field[t, 1, ratio] == "-") print "No instructions: valgrind, which counts them, is not installed."
}

function markdown(t,   row, i, n, line) {
  if (!find(t, "bar")) return
  for (row = 0; row <= rows[t]; row++) {
    n = cells(t, row)
    line = "|"
    for (i = 1; i <= n; i++) line = line " " cell[i] " |"
    print (t > 1 && row == 0 ? "\n" : "") line
    if (row) continue
    line = "|---|"
    for (i = 2; i <= n; i++) line = line "---|"
    print line
  }
}

# The columns' names in lower case, words joined by "_"; "-" as null.
function json(   t, row, i, name, value) {
  printf "{"
  for (t = 1; t <= tables; t++) {
    printf "%s\n  \"%s\": [", (t > 1 ? "," : ""), key(table[t])
    for (row = 1; row <= rows[t]; row++) {
      printf "%s\n    {", (row > 1 ? "," : "")
      for (i = 1; i <= columns[t]; i++) {
        value = field[t, row, i]
        if (value == "-") value = "null"
        else if (value !~ /^-?[0-9]+(\.[0-9]+)?$/) { gsub(/["\\]/, "\\\\&", value); value = "\"" value "\"" }
        printf "%s\"%s\": %s", (i > 1 ? ", " : ""), key(column[t, i]), value
      }
      printf "}"
    }
    printf "%s]", (rows[t] ? "\n  " : "")
  }
  print "\n}"
}

function key(name) {
  name = tolower(name)
  gsub(/,/, "", name)
  gsub(/[^a-z0-9]+/, "_", name)
  return name
}

# Draws the ratios of a table as bars from 1, on a logarithmic scale, each with a mark at its goal.
function svg(t,   row, name, ratio, bar, n, y, high, edge, shown, value, aim, from, to) {
  ratio = find(t, "ratio"); bar = find(t, "bar")
  for (row = 1; row <= rows[t]; row++) if (field[t, row, ratio] != "-") shown[++n] = row
  if (!n) { print "no instructions were counted, so there is no plot" > "/dev/stderr"; exit 1 }
  side = 320; edge = 660; low = 0.25; high = 4
  for (row = 1; row <= n; row++) {
    while (field[t, shown[row], ratio] > high) high *= 2
    while (field[t, shown[row], ratio] < low) low /= 2
  }
  scale = (edge - side) / log(high / low)
  printf "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 760 %d\" ", 20 * n + 90
  print "role=\"img\" aria-labelledby=\"title\">"
  print "<title id=\"title\">Instructions of the library, as a multiple of those of code written by hand</title>"
  print "<style>"
  print "  text { font: 12px sans-serif } .end { text-anchor: end } .middle { text-anchor: middle }"
  print "  .bar { stroke-width: 3 }"
  print colours("#ffffff", "#1f2328", "#d1d9e0", "#1a7f64", "#bc4c00")
  print "  @media (prefers-color-scheme: dark) {"
  print colours("#0d1117", "#e6edf3", "#3d444d", "#3fb68b", "#f0883e")
  print "  }"
  print "</style>"
  print "<rect class=\"back\" width=\"100%\" height=\"100%\"/>"
  print "<text x=\"10\" y=\"20\">Instructions, as a multiple of code written by hand; the mark is the bar.</text>"
  print "<rect class=\"good\" x=\"10\" y=\"31\" width=\"12\" height=\"12\"/><text x=\"28\" y=\"41\">bar reached</text>"
  print "<rect class=\"poor\" x=\"120\" y=\"31\" width=\"12\" height=\"12\"/><text x=\"138\" y=\"41\">above its bar</text>"
  print "<text class=\"end\" x=\"750\" y=\"62\">ratio / bar</text>"
  for (value = low; value <= high; value *= 2) {
    printf "<path class=\"%s\" d=\"M%.1f 68V%d\"/>", (value == 1 ? "one" : "line"), place(value), 20 * n + 72
    printf "<text class=\"middle\" x=\"%.1f\" y=\"62\">%s</text>\n", place(value), value
  }
  for (row = 1; row <= n; row++) {
    y = 20 * row + 56
    name = field[t, shown[row], 1]; value = field[t, shown[row], ratio] + 0; aim = field[t, shown[row], bar] + 0
    gsub(/&/, "\\&amp;", name); gsub(/</, "\\&lt;", name)
    from = place(value < 1 ? value : 1); to = place(value < 1 ? 1 : value)
    printf "<text class=\"end\" x=\"%d\" y=\"%d\">%s</text>", side - 10, y + 12, name
    printf "<rect class=\"%s\" x=\"%.1f\" y=\"%d\" ", (value > aim ? "poor" : "good"), from, y + 2
    printf "width=\"%.1f\" height=\"12\"/>", (to - from > 2 ? to - from : 2)
    printf "<path class=\"bar\" d=\"M%.1f %dv16\"/>", place(aim), y
    printf "<text class=\"end\" x=\"750\" y=\"%d\">%.2f / %.2f</text>\n", y + 12, value, aim
  }
  print "</svg>"
}

function colours(back, ink, line, good, poor) {
  return sprintf("  .back { fill: %s } text { fill: %s } .one, .bar { stroke: %s } .line { stroke: %s } " \
                 ".good { fill: %s } .poor { fill: %s }", back, ink, ink, line, good, poor)
}

function place(value) { return side + scale * log(value / low) }
