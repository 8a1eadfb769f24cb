// Tokenizer and recursive-descent parser of the formula language.
#include "formula/syntax.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "formula/functions.h"
#include "formula/time_support.h"
#include "formula/value.h"
#include "globerr.h"

namespace tarnwick::rt::formula {
namespace {

enum class Tok : unsigned char {
  kEnd, kText, kNumber, kTime, kKeyword, kName, kFunction, kOperator,
  kLParen, kRParen, kSemicolon, kAssign, kColon,
};

struct Token {
  Tok type = Tok::kEnd;
  std::string text;  // literal text, name, keyword or operator spelling
  double number = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
};

// Thrown inside the parser only; parse_formula turns it into a CompileError.
struct SyntaxError {
  STATUS status;
  uint32_t offset;
  uint32_t length;
};

bool is_name_start(unsigned char c) { return std::isalpha(c) || c == '_' || c == '$' || c >= 0x80; }
bool is_name_char(unsigned char c) { return is_name_start(c) || std::isdigit(c); }

std::string upper_ascii(std::string_view s) { return to_upper(s); }

// Operator spellings, longest first so that "*<>" wins over "*<".
constexpr std::string_view kOperators[] = {
    "*<>", "*!=", "*<=", "*>=", "*=", "*<", "*>", "*+", "*-", "**", "*/", "!=", "=!", "<>", "><", "<=", ">=",
    "<", ">", "=", "+", "-", "*", "/", "&", "|", "!",
};

class Lexer {
 public:
  explicit Lexer(std::string_view source) : src_(source) {}

  Token next() {
    skip_space();
    Token t;
    t.offset = static_cast<uint32_t>(pos_);
    if (pos_ >= src_.size()) {
      t.type = Tok::kEnd;
      return t;
    }
    const unsigned char c = static_cast<unsigned char>(src_[pos_]);
    if (c == '"') {
      lex_quoted(t);
    } else if (c == '{') {
      lex_braced(t);
    } else if (std::isdigit(c) || (c == '.' && pos_ + 1 < src_.size() && std::isdigit((unsigned char)src_[pos_ + 1]))) {
      lex_number(t);
    } else if (c == '[') {
      lex_bracket(t);
    } else if (c == ']') {
      throw SyntaxError{ERR_EXTRA_BRACKET, t.offset, 1};
    } else if (c == '@') {
      size_t end = pos_ + 1;
      while (end < src_.size() && is_name_char(static_cast<unsigned char>(src_[end]))) ++end;
      if (end == pos_ + 1) throw SyntaxError{ERR_UNKNOWN_FUNCTION, t.offset, 1};
      t.type = Tok::kFunction;
      t.text = std::string(src_.substr(pos_ + 1, end - pos_ - 1));
      pos_ = end;
    } else if (is_name_start(c)) {
      size_t end = pos_;
      while (end < src_.size() && is_name_char(static_cast<unsigned char>(src_[end]))) ++end;
      t.type = Tok::kName;
      t.text = std::string(src_.substr(pos_, end - pos_));
      pos_ = end;
    } else if (src_.substr(pos_, 2) == ":=") {
      t.type = Tok::kAssign;
      pos_ += 2;
    } else if (c == ':') {
      t.type = Tok::kColon;
      ++pos_;
    } else if (c == '(') {
      t.type = Tok::kLParen;
      ++pos_;
    } else if (c == ')') {
      t.type = Tok::kRParen;
      ++pos_;
    } else if (c == ';') {
      t.type = Tok::kSemicolon;
      ++pos_;
    } else {
      lex_operator(t);
    }
    t.length = static_cast<uint32_t>(pos_ - t.offset);
    return t;
  }

 private:
  void skip_space() {
    while (pos_ < src_.size() && (src_[pos_] == ' ' || src_[pos_] == '\t' || src_[pos_] == '\r' || src_[pos_] == '\n'))
      ++pos_;
  }

  void lex_quoted(Token& t) {
    const size_t start = pos_++;
    std::string text;
    while (true) {
      if (pos_ >= src_.size()) throw SyntaxError{ERR_UNTERMINATED_LITERAL, uint32_t(start), uint32_t(pos_ - start)};
      char c = src_[pos_++];
      if (c == '"') break;
      if (c == '\\') {
        if (pos_ >= src_.size()) throw SyntaxError{ERR_UNTERMINATED_LITERAL, uint32_t(start), uint32_t(pos_ - start)};
        c = src_[pos_++];
      }
      text.push_back(c);
    }
    if (text.size() > kMaxTextBytes) throw SyntaxError{ERR_BIG_LITERAL, uint32_t(start), uint32_t(pos_ - start)};
    t.type = Tok::kText;
    t.text = std::move(text);
  }

  void lex_braced(Token& t) {
    const size_t start = pos_;
    const size_t close = src_.find('}', pos_ + 1);
    if (close == std::string_view::npos)
      throw SyntaxError{ERR_UNTERMINATED_LITERAL, uint32_t(start), uint32_t(src_.size() - start)};
    t.type = Tok::kText;
    t.text = std::string(src_.substr(pos_ + 1, close - pos_ - 1));
    pos_ = close + 1;
  }

  void lex_number(Token& t) {
    size_t end = pos_;
    while (end < src_.size() && std::isdigit((unsigned char)src_[end])) ++end;
    if (end < src_.size() && src_[end] == '.') {
      ++end;
      while (end < src_.size() && std::isdigit((unsigned char)src_[end])) ++end;
    }
    if (end < src_.size() && (src_[end] == 'e' || src_[end] == 'E')) {
      size_t exp = end + 1;
      if (exp < src_.size() && (src_[exp] == '+' || src_[exp] == '-')) ++exp;
      if (exp < src_.size() && std::isdigit((unsigned char)src_[exp])) {
        end = exp;
        while (end < src_.size() && std::isdigit((unsigned char)src_[end])) ++end;
      }
    }
    const std::string digits(src_.substr(pos_, end - pos_));
    t.type = Tok::kNumber;
    t.number = std::strtod(digits.c_str(), nullptr);
    pos_ = end;
  }

  void lex_bracket(Token& t) {
    const size_t start = pos_;
    const size_t close = src_.find(']', pos_ + 1);
    if (close == std::string_view::npos)
      throw SyntaxError{ERR_UNTERMINATED_LITERAL, uint32_t(start), uint32_t(src_.size() - start)};
    std::string_view inside = src_.substr(pos_ + 1, close - pos_ - 1);
    while (!inside.empty() && inside.front() == ' ') inside.remove_prefix(1);
    while (!inside.empty() && inside.back() == ' ') inside.remove_suffix(1);
    pos_ = close + 1;
    const uint32_t length = uint32_t(pos_ - start);
    if (!inside.empty() && std::isalpha(static_cast<unsigned char>(inside.front()))) {
      for (char c : inside) {
        if (!(is_name_char(static_cast<unsigned char>(c)) || c == ' '))
          throw SyntaxError{ERR_UNKNOWN_FKWD, uint32_t(start), length};
      }
      t.type = Tok::kKeyword;
      t.text = upper_ascii(inside);
      return;
    }
    // Checked here so that a bad constant is a compile error; its value is
    // taken when the formula runs, in the zone and settings of that moment.
    TIMEDATE checked;
    if (!time_from_text(inside, checked)) throw SyntaxError{ERR_TDO_CONV, uint32_t(start), length};
    t.type = Tok::kTime;
    t.text = std::string(inside);
  }

  void lex_operator(Token& t) {
    for (std::string_view op : kOperators) {
      if (src_.substr(pos_, op.size()) == op) {
        t.type = Tok::kOperator;
        t.text = std::string(op);
        pos_ += op.size();
        return;
      }
    }
    throw SyntaxError{ERR_INVALID_OPERATOR, uint32_t(pos_), 1};
  }

  std::string_view src_;
  size_t pos_ = 0;
};

struct BinarySpelling {
  std::string_view spelling;
  Op op;
  bool permuted;
};
constexpr BinarySpelling kComparisons[] = {
    {"=", Op::kEqual, false},         {"!=", Op::kNotEqual, false},    {"=!", Op::kNotEqual, false},
    {"<>", Op::kNotEqual, false},     {"><", Op::kNotEqual, false},    {"<", Op::kLess, false},
    {">", Op::kGreater, false},       {"<=", Op::kLessEqual, false},   {">=", Op::kGreaterEqual, false},
    {"*=", Op::kEqual, true},         {"*!=", Op::kNotEqual, true},    {"*<>", Op::kNotEqual, true},
    {"*<", Op::kLess, true},          {"*>", Op::kGreater, true},      {"*<=", Op::kLessEqual, true},
    {"*>=", Op::kGreaterEqual, true},
};
constexpr BinarySpelling kAdditive[] = {
    {"+", Op::kAdd, false}, {"-", Op::kSubtract, false}, {"*+", Op::kAdd, true}, {"*-", Op::kSubtract, true}};
constexpr BinarySpelling kMultiplicative[] = {
    {"*", Op::kMultiply, false}, {"/", Op::kDivide, false}, {"**", Op::kMultiply, true}, {"*/", Op::kDivide, true}};

class Parser {
 public:
  explicit Parser(std::string_view source) : lexer_(source) { advance(); }

  std::unique_ptr<Node> parse_program() {
    auto sequence = make(NodeKind::kSequence, current_);
    bool any_statement = false;
    while (current_.type != Tok::kEnd) {
      if (current_.type == Tok::kSemicolon) {
        advance();
        continue;
      }
      any_statement = true;
      if (auto statement = parse_statement(true)) adopt(*sequence, std::move(statement));
      if (current_.type == Tok::kRParen) throw error(ERR_EXTRA_RPAREN);
      if (current_.type != Tok::kSemicolon && current_.type != Tok::kEnd) throw error(ERR_OP_EXPECTED);
    }
    if (!any_statement) throw SyntaxError{ERR_NO_FORMULA, 0, 0};
    return sequence;
  }

 private:
  void advance() { current_ = lexer_.next(); }

  SyntaxError error(STATUS status) const { return {status, current_.offset, std::max<uint32_t>(current_.length, 1)}; }

  static std::unique_ptr<Node> make(NodeKind kind, const Token& at) {
    auto node = std::make_unique<Node>();
    node->kind = kind;
    node->offset = at.offset;
    node->length = at.length;
    return node;
  }

  void adopt(Node& parent, std::unique_ptr<Node> child) {
    parent.depth = std::max(parent.depth, child->depth + 1);
    if (parent.depth > kMaxNestingDepth) throw SyntaxError{ERR_COMPUTE_STACK_OVERFLOW, child->offset, child->length};
    parent.children.push_back(std::move(child));
  }

  bool at_word(std::string_view word) const {
    return current_.type == Tok::kName && equal_ignoring_case(current_.text, word);
  }

  // One statement; nullptr for a remark. Top-level statements may also be
  // SELECT and REM.
  std::unique_ptr<Node> parse_statement(bool top_level) {
    if (top_level && at_word("REM")) {
      advance();
      if (current_.type != Tok::kText) throw error(ERR_REM_FORMAT);
      advance();
      return nullptr;
    }
    if (top_level && at_word("SELECT")) {
      if (seen_select_) throw error(ERR_ONE_MAIN_EXPR);
      seen_select_ = true;
      auto node = make(NodeKind::kSelect, current_);
      advance();
      adopt(*node, parse_expression());
      return node;
    }
    if (at_word("FIELD") || at_word("DEFAULT")) {
      auto node = make(at_word("FIELD") ? NodeKind::kAssignField : NodeKind::kAssignDefault, current_);
      advance();
      if (current_.type != Tok::kName) throw error(ERR_ASSIGNMENT_POS);
      node->text = current_.text;
      advance();
      if (current_.type != Tok::kAssign) throw error(ERR_ASSIGNMENT_POS);
      advance();
      adopt(*node, parse_expression());
      return node;
    }
    if (current_.type == Tok::kName) {
      Token name = current_;
      advance();
      if (current_.type == Tok::kAssign) {
        auto node = make(NodeKind::kAssignTemp, name);
        node->text = name.text;
        advance();
        adopt(*node, parse_expression());
        return node;
      }
      auto expr = parse_expression_from(name_node(name));
      if (current_.type == Tok::kAssign) throw error(ERR_ASSIGNMENT_TARGET);
      return expr;
    }
    auto expr = parse_expression();
    if (current_.type == Tok::kAssign) throw error(ERR_ASSIGNMENT_TARGET);
    return expr;
  }

  std::unique_ptr<Node> name_node(const Token& name) {
    if (current_.type == Tok::kLParen) throw error(ERR_NOT_A_FUNCTION);
    auto node = make(NodeKind::kName, name);
    node->text = name.text;
    return node;
  }

  // The loosest level: '&' and '|'.
  std::unique_ptr<Node> parse_expression() { return parse_logic(nullptr); }
  // Same, when the first operand's name token was already consumed.
  std::unique_ptr<Node> parse_expression_from(std::unique_ptr<Node> first_operand) {
    return parse_logic(std::move(first_operand));
  }

  struct DepthGuard {
    explicit DepthGuard(Parser& p) : parser(p) {
      if (++parser.depth_ > kMaxNestingDepth) throw parser.error(ERR_COMPUTE_STACK_OVERFLOW);
    }
    ~DepthGuard() { --parser.depth_; }
    Parser& parser;
  };

  std::unique_ptr<Node> parse_logic(std::unique_ptr<Node> first) {
    auto left = parse_not(std::move(first));
    while (current_.type == Tok::kOperator && (current_.text == "&" || current_.text == "|")) {
      auto node = make(NodeKind::kBinary, current_);
      node->op = current_.text == "&" ? Op::kAnd : Op::kOr;
      advance();
      adopt(*node, std::move(left));
      adopt(*node, parse_not(nullptr));
      left = std::move(node);
    }
    return left;
  }

  std::unique_ptr<Node> parse_not(std::unique_ptr<Node> first) {
    if (!first && current_.type == Tok::kOperator && current_.text == "!") {
      DepthGuard guard(*this);
      auto node = make(NodeKind::kUnary, current_);
      node->op = Op::kNot;
      advance();
      adopt(*node, parse_not(nullptr));
      return node;
    }
    return parse_binary_level(std::move(first), 0);
  }

  // Levels 0: comparisons, 1: additive, 2: multiplicative, then unary.
  std::unique_ptr<Node> parse_binary_level(std::unique_ptr<Node> first, int level) {
    auto left = level == 2 ? parse_unary(std::move(first)) : parse_binary_level(std::move(first), level + 1);
    while (current_.type == Tok::kOperator) {
      const BinarySpelling* match = nullptr;
      auto find = [&](const auto& table) {
        for (const auto& s : table)
          if (s.spelling == current_.text) match = &s;
      };
      if (level == 0) find(kComparisons);
      if (level == 1) find(kAdditive);
      if (level == 2) find(kMultiplicative);
      if (!match) break;
      auto node = make(NodeKind::kBinary, current_);
      node->op = match->op;
      node->permuted = match->permuted;
      advance();
      adopt(*node, std::move(left));
      adopt(*node, level == 2 ? parse_unary(nullptr) : parse_binary_level(nullptr, level + 1));
      left = std::move(node);
    }
    return left;
  }

  std::unique_ptr<Node> parse_unary(std::unique_ptr<Node> first) {
    if (!first && current_.type == Tok::kOperator &&
        (current_.text == "-" || current_.text == "+" || current_.text == "!")) {
      DepthGuard guard(*this);
      auto node = make(NodeKind::kUnary, current_);
      node->op = current_.text == "-" ? Op::kNegate : current_.text == "+" ? Op::kPlus : Op::kNot;
      advance();
      adopt(*node, parse_unary(nullptr));
      return node;
    }
    return parse_list(std::move(first));
  }

  std::unique_ptr<Node> parse_list(std::unique_ptr<Node> first) {
    auto head = first ? std::move(first) : parse_primary();
    if (current_.type != Tok::kColon) return head;
    auto list = make(NodeKind::kList, current_);
    list->offset = head->offset;
    adopt(*list, std::move(head));
    while (current_.type == Tok::kColon) {
      advance();
      adopt(*list, parse_list_element());
      if (list->children.size() > kMaxListElements) throw error(ERR_TOO_MANY_ELEMENTS);
    }
    return list;
  }

  // An element after ':' may carry its own sign: 1:-2.
  std::unique_ptr<Node> parse_list_element() {
    if (current_.type == Tok::kOperator && (current_.text == "-" || current_.text == "+")) {
      auto node = make(NodeKind::kUnary, current_);
      node->op = current_.text == "-" ? Op::kNegate : Op::kPlus;
      advance();
      adopt(*node, parse_primary());
      return node;
    }
    return parse_primary();
  }

  std::unique_ptr<Node> parse_primary() {
    switch (current_.type) {
      case Tok::kText: {
        auto node = make(NodeKind::kText, current_);
        node->text = std::move(current_.text);
        advance();
        return node;
      }
      case Tok::kNumber: {
        auto node = make(NodeKind::kNumber, current_);
        node->number = current_.number;
        advance();
        return node;
      }
      case Tok::kTime: {
        auto node = make(NodeKind::kTimeConstant, current_);
        node->text = std::move(current_.text);
        advance();
        return node;
      }
      case Tok::kKeyword: {
        auto node = make(NodeKind::kKeyword, current_);
        node->text = std::move(current_.text);
        advance();
        return node;
      }
      case Tok::kName: {
        if (at_word("FIELD") || at_word("DEFAULT") || at_word("SELECT") || at_word("REM"))
          throw error(ERR_NESTED_ASSIGN);
        Token name = current_;
        advance();
        return name_node(name);
      }
      case Tok::kFunction:
        return parse_call();
      case Tok::kLParen: {
        DepthGuard guard(*this);
        advance();
        auto inner = parse_expression();
        if (current_.type == Tok::kAssign) throw error(ERR_NESTED_ASSIGN);
        if (current_.type != Tok::kRParen) {
          const bool unclosed = current_.type == Tok::kEnd || current_.type == Tok::kSemicolon;
          throw error(unclosed ? ERR_MISSING_RPAREN : ERR_OP_EXPECTED);
        }
        advance();
        return inner;
      }
      case Tok::kEnd:
        throw error(ERR_PREMATURE_EOI);
      case Tok::kRParen:
        throw error(ERR_EXTRA_RPAREN);
      default:
        throw error(ERR_INVALID_FORMULA);
    }
  }

  std::unique_ptr<Node> parse_call() {
    DepthGuard guard(*this);
    const Token name = current_;
    const Builtin* builtin = find_builtin(name.text);
    if (!builtin) throw SyntaxError{ERR_UNKNOWN_FUNCTION, name.offset, name.length};
    auto node = make(NodeKind::kCall, name);
    node->builtin = builtin;
    node->text = std::string(builtin->name);
    advance();
    if (current_.type == Tok::kLParen) {
      advance();
      if (current_.type == Tok::kRParen) {
        advance();
      } else {
        while (true) {
          adopt(*node, parse_statement(false));
          if (current_.type == Tok::kSemicolon) {
            advance();
            continue;
          }
          if (current_.type == Tok::kRParen) {
            advance();
            break;
          }
          throw error(current_.type == Tok::kEnd ? ERR_MISSING_RPAREN : ERR_OP_EXPECTED);
        }
      }
    }
    const int count = static_cast<int>(node->children.size());
    if (count < builtin->min_args)
      throw SyntaxError{count == 0 ? STATUS(ERR_ARGS_EXPECTED) : STATUS(ERR_INSUFFICIENT_ARGS), name.offset, name.length};
    if (builtin->max_args >= 0 && count > builtin->max_args)
      throw SyntaxError{builtin->max_args == 0 ? STATUS(ERR_NOT_A_FUNCTION) : STATUS(ERR_TOO_MANY_ARGS), name.offset,
                        name.length};
    if (builtin->name == "If" && count % 2 == 0) throw SyntaxError{ERR_IF_ODD_ARGS, name.offset, name.length};
    return node;
  }

  Lexer lexer_;
  Token current_;
  bool seen_select_ = false;
  int depth_ = 0;
};

void locate(std::string_view source, uint32_t offset, CompileError& error) {
  offset = std::min<uint32_t>(offset, static_cast<uint32_t>(source.size()));
  WORD line = 1, column = 1;
  for (uint32_t i = 0; i < offset; ++i) {
    if (source[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  error.line = line;
  error.column = column;
  error.offset = static_cast<WORD>(offset);
}

}  // namespace

std::shared_ptr<const Program> parse_formula(std::string_view source, CompileError& error) {
  error = CompileError{};
  try {
    Parser parser(source);
    auto program = std::make_shared<Program>();
    program->source = std::string(source);
    program->root = parser.parse_program();
    return program;
  } catch (const SyntaxError& e) {
    error.status = e.status;
    locate(source, e.offset, error);
    error.length = static_cast<WORD>(std::min<uint32_t>(e.length, MAXWORD));
    return nullptr;
  }
}

}  // namespace tarnwick::rt::formula
