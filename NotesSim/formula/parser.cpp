// Tokens and the recursive-descent parser of the formula language.
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "language.h"

namespace sim {
namespace formula {
namespace {

struct Token {
    enum class Kind { End, Number, Text, Name, Function, Operator, Open, Close, Separator, Bad };
    Kind kind = Kind::End;
    std::string text; // the value of a text, the name, the operator
    double number = 0;
    size_t offset = 0;
    size_t length = 0;
};

struct Function {
    const char* name; // lower case, without the @
    int minArgs;
    int maxArgs; // -1: no limit
};

const Function kFunctions[] = {
    {"doclength", 0, 0}, {"created", 0, 0}, {"modified", 0, 0},
    {"if", 3, -1},       {"length", 1, 1},  {"text", 1, 1},
};

const Function* findFunction(const std::string& name)
{
    for (const Function& function : kFunctions)
        if (strcasecmp(function.name, name.c_str()) == 0)
            return &function;
    return nullptr;
}

bool isNameStart(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == '$';
}

bool isNameChar(char c)
{
    return isNameStart(c) || std::isdigit(static_cast<unsigned char>(c));
}

class Lexer {
public:
    explicit Lexer(const std::string& text) : text_(text) {}

    Token next()
    {
        while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_])))
            ++pos_;
        Token token;
        token.offset = pos_;
        if (pos_ >= text_.size())
            return token;
        char c = text_[pos_];
        if (std::isdigit(static_cast<unsigned char>(c)) || (c == '.' && pos_ + 1 < text_.size() &&
                                                            std::isdigit(static_cast<unsigned char>(text_[pos_ + 1]))))
            return number(token);
        if (c == '"')
            return quoted(token);
        if (isNameStart(c) || c == '@')
            return name(token, c == '@');
        return punctuation(token, c);
    }

private:
    Token finish(Token& token, Token::Kind kind)
    {
        token.kind = kind;
        token.length = pos_ - token.offset;
        return token;
    }

    Token number(Token& token)
    {
        const char* start = text_.c_str() + pos_;
        char* end = nullptr;
        token.number = std::strtod(start, &end);
        pos_ += static_cast<size_t>(end - start);
        // "12abc" is no number followed by a name, it is a mistake.
        if (pos_ < text_.size() && isNameChar(text_[pos_])) {
            while (pos_ < text_.size() && isNameChar(text_[pos_]))
                ++pos_;
            return finish(token, Token::Kind::Bad);
        }
        return finish(token, Token::Kind::Number);
    }

    Token quoted(Token& token)
    {
        ++pos_;
        while (pos_ < text_.size() && text_[pos_] != '"') {
            if (text_[pos_] == '\\' && pos_ + 1 < text_.size())
                ++pos_;
            token.text += text_[pos_++];
        }
        if (pos_ >= text_.size())
            return finish(token, Token::Kind::Bad); // the text never ends
        ++pos_;
        return finish(token, Token::Kind::Text);
    }

    Token name(Token& token, bool function)
    {
        if (function)
            ++pos_;
        size_t start = pos_;
        while (pos_ < text_.size() && isNameChar(text_[pos_]))
            ++pos_;
        token.text = text_.substr(start, pos_ - start);
        if (token.text.empty())
            return finish(token, Token::Kind::Bad);
        return finish(token, function ? Token::Kind::Function : Token::Kind::Name);
    }

    Token punctuation(Token& token, char c)
    {
        static const char* const kTwoCharacter[] = {"!=", "<>", "<=", ">="};
        for (const char* op : kTwoCharacter)
            if (text_.compare(pos_, 2, op) == 0) {
                token.text = op;
                pos_ += 2;
                return finish(token, Token::Kind::Operator);
            }
        ++pos_;
        token.text = std::string(1, c);
        switch (c) {
        case '(':
            return finish(token, Token::Kind::Open);
        case ')':
            return finish(token, Token::Kind::Close);
        case ';':
            return finish(token, Token::Kind::Separator);
        case '+': case '-': case '*': case '/': case '&': case '|': case '!': case '=': case '<': case '>':
            return finish(token, Token::Kind::Operator);
        default:
            return finish(token, Token::Kind::Bad);
        }
    }

    const std::string& text_;
    size_t pos_ = 0;
};

// Thrown to the top with the token that made no sense.
struct SyntaxError {
    Token token;
};

class Parser {
public:
    explicit Parser(const std::string& text) : lexer_(text) { advance(); }

    std::unique_ptr<Node> formula()
    {
        std::unique_ptr<Node> root = logical();
        if (current_.kind != Token::Kind::End)
            throw SyntaxError{current_};
        return root;
    }

private:
    void advance() { current_ = lexer_.next(); }

    // Nesting is bounded, so that no formula can exhaust the stack.
    static constexpr int kMaxDepth = 512;
    struct Nesting {
        Nesting(Parser& parser) : depth(parser.depth_)
        {
            if (++depth > kMaxDepth)
                throw SyntaxError{parser.current_};
        }
        ~Nesting() { --depth; }
        int& depth;
    };

    bool atOperator(std::initializer_list<const char*> ops) const
    {
        if (current_.kind != Token::Kind::Operator)
            return false;
        for (const char* op : ops)
            if (current_.text == op)
                return true;
        return false;
    }

    // A node over its operands; long operator chains are as deep as heavy nesting.
    std::unique_ptr<Node> over(std::unique_ptr<Node> node, const Token& token)
    {
        for (const auto& arg : node->args)
            node->depth = std::max(node->depth, arg->depth + 1);
        if (node->depth > kMaxDepth)
            throw SyntaxError{token};
        return node;
    }

    std::unique_ptr<Node> binary(const std::string& op, std::unique_ptr<Node> left, std::unique_ptr<Node> right)
    {
        auto node = std::make_unique<Node>();
        node->kind = Node::Kind::Binary;
        node->text = op == "<>" ? "!=" : op;
        node->args.push_back(std::move(left));
        node->args.push_back(std::move(right));
        return over(std::move(node), current_);
    }

    template <class Next>
    std::unique_ptr<Node> leftAssociative(std::initializer_list<const char*> ops, Next next)
    {
        std::unique_ptr<Node> left = (this->*next)();
        while (atOperator(ops)) {
            std::string op = current_.text;
            advance();
            left = binary(op, std::move(left), (this->*next)());
        }
        return left;
    }

    std::unique_ptr<Node> logical()
    {
        Nesting nesting(*this);
        return leftAssociative({"&", "|"}, &Parser::negation);
    }

    std::unique_ptr<Node> negation()
    {
        Nesting nesting(*this);
        if (!atOperator({"!"}))
            return comparison();
        advance();
        auto node = std::make_unique<Node>();
        node->kind = Node::Kind::Unary;
        node->text = "!";
        node->args.push_back(negation());
        return over(std::move(node), current_);
    }

    std::unique_ptr<Node> comparison()
    {
        return leftAssociative({"=", "!=", "<>", "<", ">", "<=", ">="}, &Parser::sum);
    }
    std::unique_ptr<Node> sum() { return leftAssociative({"+", "-"}, &Parser::product); }
    std::unique_ptr<Node> product() { return leftAssociative({"*", "/"}, &Parser::sign); }

    std::unique_ptr<Node> sign()
    {
        Nesting nesting(*this);
        if (!atOperator({"-", "+"}))
            return primary();
        std::string op = current_.text;
        advance();
        std::unique_ptr<Node> operand = sign();
        if (op == "+")
            return operand;
        auto node = std::make_unique<Node>();
        node->kind = Node::Kind::Unary;
        node->text = "-";
        node->args.push_back(std::move(operand));
        return over(std::move(node), current_);
    }

    std::unique_ptr<Node> primary()
    {
        Token token = current_;
        auto node = std::make_unique<Node>();
        switch (token.kind) {
        case Token::Kind::Number:
            node->kind = Node::Kind::Number;
            node->number = token.number;
            advance();
            return node;
        case Token::Kind::Text:
            node->kind = Node::Kind::Text;
            node->text = token.text;
            advance();
            return node;
        case Token::Kind::Name:
            node->kind = Node::Kind::Item;
            node->text = token.text;
            advance();
            return node;
        case Token::Kind::Function:
            return function(token);
        case Token::Kind::Open: {
            advance();
            std::unique_ptr<Node> inner = logical();
            if (current_.kind != Token::Kind::Close)
                throw SyntaxError{current_};
            advance();
            return inner;
        }
        default:
            throw SyntaxError{token};
        }
    }

    std::unique_ptr<Node> function(const Token& token)
    {
        const Function* known = findFunction(token.text);
        if (known == nullptr)
            throw SyntaxError{token};
        auto node = std::make_unique<Node>();
        node->kind = Node::Kind::Function;
        node->text = known->name;
        advance();
        if (current_.kind == Token::Kind::Open) {
            advance();
            if (current_.kind != Token::Kind::Close) {
                node->args.push_back(logical());
                while (current_.kind == Token::Kind::Separator) {
                    advance();
                    node->args.push_back(logical());
                }
            }
            if (current_.kind != Token::Kind::Close)
                throw SyntaxError{current_};
            advance();
        }
        int count = static_cast<int>(node->args.size());
        bool oddIf = known->maxArgs != -1 || count % 2 == 1;
        if (count < known->minArgs || (known->maxArgs != -1 && count > known->maxArgs) || !oddIf)
            throw SyntaxError{token};
        return over(std::move(node), token);
    }

    Lexer lexer_;
    Token current_;
    int depth_ = 0;
};

CompileError errorAt(const std::string& text, const Token& token)
{
    CompileError error;
    error.offset = static_cast<WORD>(token.offset);
    error.length = static_cast<WORD>(token.length);
    for (size_t i = 0; i < token.offset && i < text.size(); ++i) {
        if (text[i] == '\n') {
            ++error.line;
            error.column = 1;
        } else {
            ++error.column;
        }
    }
    return error;
}

} // namespace

bool parse(const std::string& text, std::unique_ptr<Node>& root, CompileError& error)
{
    try {
        Parser parser(text);
        root = parser.formula();
        return true;
    } catch (const SyntaxError& failure) {
        error = errorAt(text, failure.token);
        return false;
    }
}

} // namespace formula
} // namespace sim
