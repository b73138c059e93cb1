# Turns the boxes of C++ in documents into code. A paragraph with results ("// => ...") becomes an entry of `samples`,
# named by its place; other paragraphs are declarations for them.
function end_paragraph() {
  if (has_results) {
    samples = samples "    {\"" place "\",\n     [](Sample_Scope& scope) {\n" \
              "       [[maybe_unused]] auto& [document, filter, text, shown] = scope;\n" code "     }},\n"
  } else {
    declarations = declarations code "\n"
  }
  code = ""
  has_results = 0
}
/^```/ {
  if (is_code) end_paragraph()
  is_code = $0 == "```cpp"
  next
}
!is_code { next }
$0 == "" { end_paragraph(); next }
code == "" { place = FILENAME ":" FNR }
/^\/\/ => / { has_results = 1 }
{ code = code $0 "\n" }
END { printf "%sSample const samples[] = {\n%s};\n", declarations, samples }
