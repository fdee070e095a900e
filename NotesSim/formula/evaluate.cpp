// Evaluation of a parsed formula on a note, and the result buffer it produces.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>

#include "language.h"
#include "sim_core.h"
#include "storage.h"

namespace sim {
namespace formula {
namespace {

Value numbers(std::vector<double> list)
{
    Value value;
    value.kind = Value::Kind::Number;
    value.numbers = std::move(list);
    return value;
}

Value texts(std::vector<std::string> list)
{
    Value value;
    value.kind = Value::Kind::Text;
    value.texts = std::move(list);
    return value;
}

Value times(std::vector<TIMEDATE> list)
{
    Value value;
    value.kind = Value::Kind::Time;
    value.times = std::move(list);
    return value;
}

Value failure(STATUS status = STS_FORMULA_EVALUATION)
{
    Value value;
    value.kind = Value::Kind::Error;
    value.error = status;
    return value;
}

size_t entries(const Value& value)
{
    switch (value.kind) {
    case Value::Kind::Number:
        return value.numbers.size();
    case Value::Kind::Text:
        return value.texts.size();
    case Value::Kind::Time:
        return value.times.size();
    default:
        return 0;
    }
}

template <class T>
T readAt(const char* data, size_t offset)
{
    T value;
    std::memcpy(&value, data + offset, sizeof value);
    return value;
}

// An item's value as a formula value; absent and unreadable items are the empty text.
Value itemValueOf(const NoteObject* note, const std::string& name)
{
    if (note == nullptr)
        return texts({""});
    for (const NoteItem& item : note->items) {
        const std::vector<char>* bytes = itemValue(item);
        if (bytes == nullptr || !sameItemName(item.name, name.data(), name.size()) || bytes->size() < sizeof(WORD))
            continue;
        WORD type = readAt<WORD>(bytes->data(), 0);
        const char* data = bytes->data() + sizeof type;
        size_t size = bytes->size() - sizeof type;
        if (type == TYPE_TEXT)
            return texts({std::string(data, size)});
        if (type == TYPE_NUMBER && size >= sizeof(double))
            return numbers({readAt<double>(data, 0)});
        if (type == TYPE_TIME && size >= sizeof(TIMEDATE))
            return times({readAt<TIMEDATE>(data, 0)});
        if (type == TYPE_TEXT_LIST && size >= sizeof(WORD)) {
            WORD count = readAt<WORD>(data, 0);
            size_t offset = sizeof(WORD) * (1 + static_cast<size_t>(count));
            std::vector<std::string> list;
            for (WORD i = 0; i < count && offset <= size; ++i) {
                WORD length = readAt<WORD>(data, sizeof(WORD) * (1 + static_cast<size_t>(i)));
                if (offset + length > size)
                    break;
                list.emplace_back(data + offset, length);
                offset += length;
            }
            return list.empty() ? texts({""}) : texts(list);
        }
        if ((type == TYPE_NUMBER_RANGE || type == TYPE_TIME_RANGE) && size >= sizeof(RANGE)) {
            RANGE range = readAt<RANGE>(data, 0);
            size_t width = type == TYPE_NUMBER_RANGE ? sizeof(double) : sizeof(TIMEDATE);
            if (range.ListEntries == 0 || size < sizeof range + range.ListEntries * width)
                return texts({""});
            Value value = type == TYPE_NUMBER_RANGE ? numbers({}) : times({});
            for (WORD i = 0; i < range.ListEntries; ++i) {
                size_t offset = sizeof range + i * width;
                if (type == TYPE_NUMBER_RANGE)
                    value.numbers.push_back(readAt<double>(data, offset));
                else
                    value.times.push_back(readAt<TIMEDATE>(data, offset));
            }
            return value;
        }
        return texts({""});
    }
    return texts({""});
}

// Applies `op` pair by pair; the shorter list repeats its last entry.
template <class T, class R, class Op>
std::vector<R> pairwise(const std::vector<T>& left, const std::vector<T>& right, Op op)
{
    std::vector<R> out;
    if (left.empty() || right.empty())
        return out;
    size_t count = std::max(left.size(), right.size());
    for (size_t i = 0; i < count; ++i)
        out.push_back(op(left[std::min(i, left.size() - 1)], right[std::min(i, right.size() - 1)]));
    return out;
}

template <class T>
Value compare(const std::vector<T>& left, const std::vector<T>& right, const std::string& op,
              std::function<int(const T&, const T&)> order)
{
    std::vector<bool> results = pairwise<T, bool>(left, right, [&](const T& a, const T& b) {
        int c = order(a, b);
        if (op == "=")
            return c == 0;
        if (op == "!=")
            return c != 0;
        if (op == "<")
            return c < 0;
        if (op == ">")
            return c > 0;
        if (op == "<=")
            return c <= 0;
        return c >= 0;
    });
    return numbers({std::find(results.begin(), results.end(), true) != results.end() ? 1.0 : 0.0});
}

Value comparison(const std::string& op, const Value& left, const Value& right)
{
    if (left.kind != right.kind)
        return failure();
    switch (left.kind) {
    case Value::Kind::Number:
        return compare<double>(left.numbers, right.numbers, op,
                               [](const double& a, const double& b) { return a < b ? -1 : (a > b ? 1 : 0); });
    case Value::Kind::Text:
        return compare<std::string>(left.texts, right.texts, op,
                                    [](const std::string& a, const std::string& b) { return a.compare(b); });
    case Value::Kind::Time:
        return compare<TIMEDATE>(left.times, right.times, op, [](const TIMEDATE& a, const TIMEDATE& b) {
            unsigned long long x = timedateOrder(a), y = timedateOrder(b);
            return x < y ? -1 : (x > y ? 1 : 0);
        });
    default:
        return failure();
    }
}

Value arithmetic(const std::string& op, const Value& left, const Value& right)
{
    if (op == "+" && left.kind == Value::Kind::Text && right.kind == Value::Kind::Text)
        return texts(pairwise<std::string, std::string>(left.texts, right.texts,
                                                        [](const std::string& a, const std::string& b) { return a + b; }));
    if (left.kind != Value::Kind::Number || right.kind != Value::Kind::Number)
        return failure();
    bool dividedByZero = false;
    std::vector<double> result = pairwise<double, double>(left.numbers, right.numbers, [&](double a, double b) {
        if (op == "+")
            return a + b;
        if (op == "-")
            return a - b;
        if (op == "*")
            return a * b;
        dividedByZero = dividedByZero || b == 0;
        return b == 0 ? 0.0 : a / b;
    });
    return dividedByZero ? failure() : numbers(result);
}

std::string numberText(double number)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.15g", number);
    return text;
}

Value asText(const Value& value)
{
    std::vector<std::string> out;
    switch (value.kind) {
    case Value::Kind::Text:
        return value;
    case Value::Kind::Number:
        for (double number : value.numbers)
            out.push_back(numberText(number));
        return texts(out);
    case Value::Kind::Time:
        for (const TIMEDATE& time : value.times) {
            char text[MAXALPHATIMEDATE + 1] = {};
            WORD length = 0;
            STATUS status = impl::ConvertTIMEDATEToText(nullptr, nullptr, &time, text, MAXALPHATIMEDATE, &length);
            if (status != NOERROR)
                return failure(status);
            out.emplace_back(text, length);
        }
        return texts(out);
    default:
        return value;
    }
}

class Evaluator {
public:
    explicit Evaluator(const NoteObject* note) : note_(note) {}

    Value run(const Node& node)
    {
        switch (node.kind) {
        case Node::Kind::Number:
            return numbers({node.number});
        case Node::Kind::Text:
            return texts({node.text});
        case Node::Kind::Item:
            return itemValueOf(note_, node.text);
        case Node::Kind::Unary:
            return unary(node);
        case Node::Kind::Binary:
            return binary(node);
        case Node::Kind::Function:
            return function(node);
        }
        return failure();
    }

private:
    Value unary(const Node& node)
    {
        Value operand = run(*node.args[0]);
        if (operand.kind == Value::Kind::Error)
            return operand;
        if (operand.kind != Value::Kind::Number)
            return failure();
        for (double& number : operand.numbers)
            number = node.text == "-" ? -number : (number == 0 ? 1.0 : 0.0);
        return operand;
    }

    Value binary(const Node& node)
    {
        const std::string& op = node.text;
        Value left = run(*node.args[0]);
        if (left.kind == Value::Kind::Error)
            return left;
        if (op == "&" || op == "|") {
            if (left.kind != Value::Kind::Number)
                return failure();
            // Decided by the left side alone: the right one is not evaluated.
            if ((op == "&" && !isTrue(left)) || (op == "|" && isTrue(left)))
                return numbers({op == "|" ? 1.0 : 0.0});
            Value right = run(*node.args[1]);
            if (right.kind == Value::Kind::Error)
                return right;
            return right.kind == Value::Kind::Number ? numbers({isTrue(right) ? 1.0 : 0.0}) : failure();
        }
        Value right = run(*node.args[1]);
        if (right.kind == Value::Kind::Error)
            return right;
        if (op == "+" || op == "-" || op == "*" || op == "/")
            return arithmetic(op, left, right);
        return comparison(op, left, right);
    }

    Value function(const Node& node)
    {
        const std::string& name = node.text;
        if (name == "doclength")
            return numbers({note_ != nullptr ? documentLength(*note_) : 0.0});
        if (name == "created" || name == "modified") {
            if (note_ == nullptr)
                return failure();
            TIMEDATE time = name == "created" ? note_->record.oid.Note : note_->record.modified;
            return times({time});
        }
        if (name == "if") {
            size_t last = node.args.size() - 1;
            for (size_t i = 0; i < last; i += 2) {
                Value condition = run(*node.args[i]);
                if (condition.kind == Value::Kind::Error)
                    return condition;
                if (condition.kind != Value::Kind::Number)
                    return failure();
                if (isTrue(condition))
                    return run(*node.args[i + 1]);
            }
            return run(*node.args[last]);
        }
        Value argument = run(*node.args[0]);
        if (argument.kind == Value::Kind::Error)
            return argument;
        if (name == "text")
            return asText(argument);
        // @Length
        if (argument.kind != Value::Kind::Text)
            return failure();
        std::vector<double> lengths;
        for (const std::string& text : argument.texts)
            lengths.push_back(static_cast<double>(text.size()));
        return numbers(lengths);
    }

    const NoteObject* note_;
};

template <class T>
void append(std::vector<char>& out, const T& value)
{
    const char* bytes = reinterpret_cast<const char*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof value);
}

// Offsets in a $FILE value after its type word (canonical FILEOBJECT).
constexpr size_t kFileObjectType = 0;
constexpr size_t kFileSize = 16;
constexpr size_t kFileObjectLength = 36;

} // namespace

Value evaluate(const Node& root, const NoteObject* note)
{
    return Evaluator(note).run(root);
}

bool isTrue(const Value& value)
{
    return value.kind == Value::Kind::Number && !value.numbers.empty() && value.numbers.front() != 0;
}

std::vector<char> encode(const Value& value)
{
    std::vector<char> out;
    switch (value.kind) {
    case Value::Kind::Number:
        append<WORD>(out, TYPE_NUMBER_RANGE);
        append(out, RANGE{static_cast<WORD>(entries(value)), 0});
        for (double number : value.numbers)
            append(out, number);
        break;
    case Value::Kind::Time:
        append<WORD>(out, TYPE_TIME_RANGE);
        append(out, RANGE{static_cast<WORD>(entries(value)), 0});
        for (const TIMEDATE& time : value.times)
            append(out, time);
        break;
    case Value::Kind::Text:
        append<WORD>(out, TYPE_TEXT_LIST);
        append<WORD>(out, static_cast<WORD>(entries(value)));
        for (const std::string& text : value.texts)
            append<WORD>(out, static_cast<WORD>(text.size()));
        for (const std::string& text : value.texts)
            out.insert(out.end(), text.begin(), text.end());
        break;
    case Value::Kind::Error:
        append<WORD>(out, TYPE_ERROR);
        append<WORD>(out, value.error);
        break;
    }
    return out;
}

double documentLength(const NoteObject& note)
{
    double length = 0;
    for (const NoteItem& item : note.items) {
        const std::vector<char>* value = itemValue(item);
        if (value == nullptr)
            continue;
        length += static_cast<double>(item.name.size() + value->size());
        // An attached file counts with its own bytes, which live outside the item.
        const char* data = value->data() + sizeof(WORD);
        if (value->size() >= sizeof(WORD) + kFileObjectLength && readAt<WORD>(value->data(), 0) == TYPE_OBJECT &&
            readAt<WORD>(data, kFileObjectType) == OBJECT_FILE)
            length += readAt<DWORD>(data, kFileSize);
    }
    return length;
}

} // namespace formula
} // namespace sim
