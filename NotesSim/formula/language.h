// The formula language of the simulated runtime: a parser that checks a formula
// when it is compiled, and an evaluator that runs it on a note.
//
// What it understands:
//   numbers (12, 3.5), texts ("a \"quoted\" word"), item names (case-insensitive;
//   an absent item is the empty text), parentheses;
//   unary - and !; * /; + - (+ also joins texts); = != <> < > <= >=; & | (logical);
//   @DocLength, @Created, @Modified, @If(c1; v1; ...; else), @Length(x), @Text(x).
// Values are lists of numbers, texts or times; operators work pairwise, a shorter
// list repeating its last element; a comparison is true when any pair matches, and
// texts compare byte for byte (case matters). Anything else is a compile error.
#ifndef HYSIM_FORMULA_LANGUAGE_H
#define HYSIM_FORMULA_LANGUAGE_H

#include <memory>
#include <string>
#include <vector>

#include "storage.h"

namespace sim {
namespace formula {

struct Node {
    enum class Kind { Number, Text, Item, Unary, Binary, Function };
    Kind kind = Kind::Number;
    double number = 0;
    std::string text; // text constant, item name, operator or lower-case @function name
    std::vector<std::unique_ptr<Node>> args;
    int depth = 1; // of the tree below and including this node
};

// Where a formula stopped making sense: 1-based line and column, 0-based offset,
// and the length of the offending token.
struct CompileError {
    WORD line = 1;
    WORD column = 1;
    WORD offset = 0;
    WORD length = 0;
};

// The whole text must form one expression.
bool parse(const std::string& text, std::unique_ptr<Node>& root, CompileError& error);

// Parses a compiled formula as NSFFormulaCompile makes it (`size` bytes); false when the
// bytes are not one (a formula compiled elsewhere, or damaged).
bool parseCompiled(const void* compiled, size_t size, std::unique_ptr<Node>& root);

struct Value {
    enum class Kind { Number, Text, Time, Error };
    Kind kind = Kind::Number;
    std::vector<double> numbers;
    std::vector<std::string> texts;
    std::vector<TIMEDATE> times;
    STATUS error = NOERROR;
};

// `note` may be null: item names are then empty, @DocLength 0, @Created and @Modified errors.
Value evaluate(const Node& root, const NoteObject* note);
// A number value whose first entry is not 0.
bool isTrue(const Value& value);
// The value as a computation result: type word, then the list form (TYPE_NUMBER_RANGE,
// TYPE_TEXT_LIST, TYPE_TIME_RANGE) or, for an error, TYPE_ERROR and the STATUS.
std::vector<char> encode(const Value& value);
// What @DocLength counts: the note's item names and values (type words included),
// plus the original size of every attached file.
double documentLength(const NoteObject& note);

} // namespace formula
} // namespace sim

#endif
