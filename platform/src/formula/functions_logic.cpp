// Control and type @functions: @If, @Do, @Return, errors and success,
// constants, and the tests of a value's type or a field's presence.
#include <string>

#include "formula/evaluator.h"
#include "formula/functions.h"
#include "globerr.h"

namespace tarnwick::rt::formula {
namespace {

// @If(c1; v1; c2; v2; ...; else): the value after the first true condition.
Value fn_if(Evaluator& eval, const Node& call) {
  const auto& args = call.children;
  for (size_t i = 0; i + 1 < args.size(); i += 2) {
    Value condition = eval.eval(*args[i]);
    if (condition.is_error()) return condition;
    bool ok = false;
    const bool truth = condition_value(condition, ok);
    if (!ok) return Value::failure(ERR_NUMBER_EXPECTED);
    if (truth) return eval.eval(*args[i + 1]);
  }
  return eval.eval(*args.back());
}

Value fn_do(Evaluator& eval, const Node& call) {
  Value last;
  for (const auto& arg : call.children) {
    last = eval.eval(*arg);
    if (last.is_error()) return last;
  }
  return last;
}

Value fn_return(Evaluator& eval, std::vector<Value>& args) { return eval.return_with(std::move(args[0])); }

Value fn_error(Evaluator&, std::vector<Value>&) { return Value::failure(ERR_FORMULA_GENERATED); }
Value fn_is_error(Evaluator&, std::vector<Value>& args) { return Value::boolean(args[0].is_error()); }
Value fn_true(Evaluator&, std::vector<Value>&) { return Value::boolean(true); }
Value fn_false(Evaluator&, std::vector<Value>&) { return Value::boolean(false); }
// A failed validation gives its message text; success is the number 1.
Value fn_failure(Evaluator&, std::vector<Value>& args) {
  if (args[0].kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  return args[0];
}
Value fn_nothing(Evaluator&, std::vector<Value>&) { return Value::text_list({}); }
Value fn_unavailable(Evaluator&, std::vector<Value>&) { return Value::unavailable(); }
Value fn_delete_document(Evaluator& eval, std::vector<Value>&) {
  eval.request_delete();
  return Value::boolean(true);
}

// @IsAvailable(name) and @IsUnavailable(name) take a field name, not a value.
Value available(Evaluator& eval, const Node& call, bool wanted) {
  const Node& arg = *call.children[0];
  if (arg.kind != NodeKind::kName) return Value::failure(ERR_INVALID_TYPE_FOR_OP);
  return Value::boolean(eval.is_available(arg.text) == wanted);
}
Value fn_is_available(Evaluator& eval, const Node& call) { return available(eval, call, true); }
Value fn_is_unavailable(Evaluator& eval, const Node& call) { return available(eval, call, false); }

Value fn_is_text(Evaluator&, std::vector<Value>& args) { return Value::boolean(args[0].kind == Kind::kText); }
Value fn_is_number(Evaluator&, std::vector<Value>& args) { return Value::boolean(args[0].kind == Kind::kNumber); }
Value fn_is_time(Evaluator&, std::vector<Value>& args) { return Value::boolean(args[0].kind == Kind::kTime); }
Value fn_is_null(Evaluator&, std::vector<Value>& args) {
  return Value::boolean(args[0].kind == Kind::kText && args[0].is_null());
}

}  // namespace

void add_logic_functions(std::vector<Builtin>& table) {
  table.push_back({"If", 1, -1, nullptr, fn_if});
  table.push_back({"Do", 1, -1, nullptr, fn_do});
  table.push_back({"Return", 1, 1, fn_return});
  table.push_back({"Error", 0, 0, fn_error});
  table.push_back({"IsError", 1, 1, fn_is_error, nullptr, true});
  table.push_back({"Success", 0, 0, fn_true});
  table.push_back({"True", 0, 0, fn_true});
  table.push_back({"Yes", 0, 0, fn_true});
  table.push_back({"False", 0, 0, fn_false});
  table.push_back({"No", 0, 0, fn_false});
  table.push_back({"Failure", 1, 1, fn_failure});
  table.push_back({"Nothing", 0, 0, fn_nothing});
  table.push_back({"Unavailable", 0, 0, fn_unavailable});
  table.push_back({"DeleteField", 0, 0, fn_unavailable});
  table.push_back({"DeleteDocument", 0, 0, fn_delete_document});
  table.push_back({"IsAvailable", 1, 1, nullptr, fn_is_available});
  table.push_back({"IsUnavailable", 1, 1, nullptr, fn_is_unavailable});
  table.push_back({"IsText", 1, 1, fn_is_text});
  table.push_back({"IsNumber", 1, 1, fn_is_number});
  table.push_back({"IsTime", 1, 1, fn_is_time});
  table.push_back({"IsNull", 1, 1, fn_is_null});
}

}  // namespace tarnwick::rt::formula
