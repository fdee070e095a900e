#include "view_format.h"

#include <cstring>

namespace sim {
namespace viewformat {
namespace {

class Writer {
public:
    void word(WORD value) { bytes(&value, sizeof value); }
    void dword(DWORD value) { bytes(&value, sizeof value); }
    void bytes(const void* data, size_t size)
    {
        const char* from = static_cast<const char*>(data);
        out.insert(out.end(), from, from + size);
    }
    std::vector<char> out;
};

class Reader {
public:
    Reader(const char* data, size_t size) : data_(data), size_(size) {}
    bool bytes(void* to, size_t size)
    {
        if (size > size_ - at_)
            return false;
        if (size == 0) // an empty part may have no buffer at all
            return true;
        std::memcpy(to, data_ + at_, size);
        at_ += size;
        return true;
    }
    template <class T>
    bool value(T& to)
    {
        return bytes(&to, sizeof to);
    }
    bool text(std::string& to, size_t size)
    {
        to.resize(size);
        return bytes(to.data(), size);
    }
    bool block(std::vector<char>& to, size_t size)
    {
        to.resize(size);
        return bytes(to.data(), size);
    }
    std::vector<char> rest() const { return std::vector<char>(data_ + at_, data_ + size_); }

private:
    const char* data_;
    size_t size_;
    size_t at_ = 0;
};

void writeDescriptor(Writer& out, const Column& column)
{
    out.word(kColumnSignature);
    out.word(column.flags1);
    out.word(static_cast<WORD>(column.itemName.size()));
    out.word(static_cast<WORD>(column.title.size()));
    out.word(static_cast<WORD>(column.formula.size()));
    out.word(static_cast<WORD>(column.constantValue.size()));
    out.word(column.displayWidth);
    out.dword(column.fontId);
    out.word(column.flags2);
    out.bytes(column.numberFormat, sizeof column.numberFormat);
    out.bytes(column.timeFormat, sizeof column.timeFormat);
    out.word(column.formatDataType);
    out.word(column.listSeparator);
}

// The sizes of the column's packed parts, in their order.
struct PackedSizes {
    WORD itemName = 0;
    WORD title = 0;
    WORD formula = 0;
    WORD constantValue = 0;
};

bool readDescriptor(Reader& in, Column& column, PackedSizes& sizes)
{
    WORD signature = 0;
    return in.value(signature) && signature == kColumnSignature && in.value(column.flags1) &&
           in.value(sizes.itemName) && in.value(sizes.title) && in.value(sizes.formula) &&
           in.value(sizes.constantValue) && in.value(column.displayWidth) && in.value(column.fontId) &&
           in.value(column.flags2) && in.value(column.numberFormat) && in.value(column.timeFormat) &&
           in.value(column.formatDataType) && in.value(column.listSeparator);
}

bool readPacked(Reader& in, Column& column, const PackedSizes& sizes)
{
    return in.text(column.itemName, sizes.itemName) && in.text(column.title, sizes.title) &&
           in.block(column.formula, sizes.formula) && in.block(column.constantValue, sizes.constantValue);
}

} // namespace

std::vector<char> encode(const Format& format)
{
    Writer out;
    out.bytes(&format.version, 1);
    out.bytes(&format.style, 1);
    out.word(static_cast<WORD>(format.columns.size()));
    out.word(format.itemSequence);
    out.word(format.flags);
    out.word(format.flags2);
    for (const Column& column : format.columns)
        writeDescriptor(out, column);
    for (const Column& column : format.columns) {
        out.bytes(column.itemName.data(), column.itemName.size());
        out.bytes(column.title.data(), column.title.size());
        out.bytes(column.formula.data(), column.formula.size());
        out.bytes(column.constantValue.data(), column.constantValue.size());
    }
    out.bytes(format.extensions.data(), format.extensions.size());
    return out.out;
}

bool decode(const char* data, size_t size, Format& out)
{
    Reader in(data, size);
    WORD columns = 0;
    out = Format();
    if (!in.value(out.version) || !in.value(out.style) || !in.value(columns) || !in.value(out.itemSequence) ||
        !in.value(out.flags) || !in.value(out.flags2))
        return false;
    out.columns.resize(columns);
    std::vector<PackedSizes> sizes(columns);
    for (WORD i = 0; i < columns; ++i)
        if (!readDescriptor(in, out.columns[i], sizes[i]))
            return false;
    for (WORD i = 0; i < columns; ++i)
        if (!readPacked(in, out.columns[i], sizes[i]))
            return false;
    out.extensions = in.rest();
    return true;
}

} // namespace viewformat
} // namespace sim
