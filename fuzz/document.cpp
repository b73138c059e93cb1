// A filter document as JSON text.
#include <ace/ACE.h>

#include <cstring>

#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/json_filter_helpers.h"
#include "fuzz.h"

using json_spirit::Object;
using json_spirit::Value;

static std::pair<std::string, Bindings> render(Object const& document) {
  And_Filter_SQL filter;
  generate_filter_from_obj(document, filter);
  std::pair<std::string, Bindings> rendered;
  filter.get_sql(SQL::DB_SQLITE, rendered.first, rendered.second);
  return rendered;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Value document;
  json_spirit::Read_Error error;
  json_spirit::read_string({data, data + size}, document, error);
  if (document.type() != json_spirit::obj_type) return 0;
  ACE::debug(true);  // also makes log records of statements and values
  auto const rendered = render(document.get_obj());
  json_spirit::JSON_Dump const written(document, false);
  for (auto const& [name, value] : rendered.second) {
    std::string operand;
    value.to_str(operand);
    operand.insert(0, "\"v\":");
    bool const is_operand = std::strstr(written.c_str(), (operand + '}').c_str()) != nullptr ||
                            std::strstr(written.c_str(), (operand + ',').c_str()) != nullptr;
    require(is_operand || value.type() == Binding_Value::bin_type, "an operand is bound as it is, or a uuid");
  }
  Object group;
  require(generate_or_filter(group) && filter_add_item(group, document), "a group takes any member");
  std::string const wanted = rendered.first == "1" ? "(0)" : '(' + rendered.first + ')';
  require(render(group) == std::make_pair(wanted, rendered.second), "a group of one makes the same conditions");
  return 0;
}
