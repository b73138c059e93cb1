#include "change.h"

#include <ctime>
#include <string>

#include "backup/store/store.h"
#include "catalog.h"
#include "misuse.h"
#include "open_store.h"
#include "questions.h"
#include "standard_output.h"
#include "text.h"

namespace {

void require_conditions(Key_Outcomes const& outcomes) {
  for (Key_Outcome const& outcome : outcomes) {
    if (outcome.outcome != Outcome::condition) {
      throw Misuse("nothing changed, a key is not plainly a condition; " + outcome_text(outcome));
    }
  }
}

template <class Change>
void change_files(Change_Options const& options, bool retired, char const* done, Change change) {
  Request const request = read_request(options.request);
  Key_Outcomes outcomes;
  Select_SQL const files = find_ids(request, dialect_of(options.store), retired, outcomes);
  require_conditions(outcomes);
  auto const store = open_store(options.store, Access::change);
  if (outcomes.empty() && !options.all) {
    throw Misuse("nothing changed, no condition: --all is needed to have " + grouped(store->count(files)) + " files " +
                 done);
  }
  Catalog catalog(*store);
  unsigned long long const number = change(catalog, files);
  report_change(std::string(done) + ' ' + grouped(number) + " files");
}

}  // namespace

void retire(Change_Options const& options) {
  change_files(options, false, "retired",
               [](Catalog& catalog, Select_SQL const& files) { return catalog.retire(files, std::time(nullptr)); });
}

void purge(Change_Options const& options) {
  change_files(options, true, "purged",
               [](Catalog& catalog, Select_SQL const& files) { return catalog.remove(files); });
}
