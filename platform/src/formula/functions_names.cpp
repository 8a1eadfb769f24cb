// Name @functions: @UserName.
#include "formula/evaluator.h"
#include "formula/functions.h"
#include "globerr.h"
#include "osenv.h"

namespace tarnwick::rt::formula {
namespace {

// The name the runtime works under: the server's own name from notes.ini,
// in canonical form.
Value fn_user_name(Evaluator&, std::vector<Value>&) {
  char name[MAXUSERNAME + 1];
  if (!OSGetEnvironmentString("ServerName", name, MAXUSERNAME)) return Value::text("");
  return Value::text(name);
}

}  // namespace

void add_name_functions(std::vector<Builtin>& table) { table.push_back({"UserName", 0, 0, fn_user_name}); }

}  // namespace tarnwick::rt::formula
