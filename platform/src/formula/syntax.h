// The formula language's syntax: tokens, the tree the parser builds, and the
// parser itself.
//
// A formula is a sequence of statements separated by ';':
//   expression | name := expression | FIELD name := expression
//   | DEFAULT name := expression | SELECT expression | REM "remark"
// Operators, from the loosest to the tightest binding:
//   & |   then  !   then  = != <> < > <= >= (and *= *<> ... permuted)
//   then  + - *+ *-   then  * / ** */   then unary + -   then  :  (list)
// Operands: "text" (\ escapes) or {text}, numbers, [time-date] constants,
// [Keyword]s, names of fields or variables, @Functions with arguments
// separated by ';', and parenthesised expressions. Arguments of @Functions
// may themselves be assignments (as in @Do(x := 1; x + 1)).
//
// The tree is immutable after parsing and may be shared by any number of
// evaluations on any threads.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "global.h"

namespace tarnwick::rt::formula {

struct Builtin;

enum class Op : unsigned char {
  kNone,
  kAdd, kSubtract, kMultiply, kDivide,
  kEqual, kNotEqual, kLess, kGreater, kLessEqual, kGreaterEqual,
  kAnd, kOr, kNot, kNegate, kPlus,
};

enum class NodeKind : unsigned char {
  kText,         // text
  kNumber,       // number
  kTimeConstant, // text (the constant as written inside the brackets)
  kKeyword,      // text (upper-cased keyword name)
  kName,         // text (field or variable name)
  kList,         // children joined by ':'
  kUnary,        // op, children[0]
  kBinary,       // op, permuted, children[0..1]
  kCall,         // builtin, children = arguments
  kAssignTemp,   // text = name, children[0]
  kAssignField,  // text = name, children[0]
  kAssignDefault,// text = name, children[0]
  kSelect,       // children[0]
  kSequence,     // statements in order
};

struct Node {
  NodeKind kind = NodeKind::kText;
  Op op = Op::kNone;
  bool permuted = false;
  std::string text;
  double number = 0;
  const Builtin* builtin = nullptr;
  std::vector<std::unique_ptr<Node>> children;
  int depth = 1;        // height of the subtree (evaluation recursion)
  uint32_t offset = 0;  // where the node starts in the source
  uint32_t length = 0;
};

struct Program {
  std::string source;
  std::unique_ptr<Node> root;  // a kSequence
};

// Where and why a formula failed to compile. line and column count from 1,
// offset from 0, all in bytes.
struct CompileError {
  STATUS status = NOERROR;
  WORD line = 0;
  WORD column = 0;
  WORD offset = 0;
  WORD length = 0;
};

// Deepest nesting of operators and parentheses the parser accepts.
constexpr int kMaxNestingDepth = 400;

// Parses a formula. On failure returns nullptr and fills `error`.
std::shared_ptr<const Program> parse_formula(std::string_view source, CompileError& error);

}  // namespace tarnwick::rt::formula
