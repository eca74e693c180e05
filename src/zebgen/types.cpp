#include "types.h"

#include <algorithm>
#include <iterator>

namespace zebgen {
namespace {

constexpr ScalarType k_scalars[] = {
    {"BOOL", "BOOL", "BOOL"},
    {"BYTE", "BYTE", "BYTE"},
    {"DWORD", "UINT", "DWORD"},
    {"FTIME", "FTIME", "FTIME"},
    {"LONG", "LONG", "long"},
    {"SIZET", "SIZET", "size_t"},
    {"STRING", "STRING", "STRING"},
    {"TIME", "TIME", "time_t"},
    {"ULONG", "ULONG", "unsigned long"},
    {"WORD", "USHORT", "WORD"},
    {"char", "CHAR", "char"},
    {"double", "DOUBLE", "double"},
    {"float", "FLOAT", "float"},
    {"int", "INT", "int"},
    {"int16_t", "SHORT", "int16_t"},
    {"int32_t", "INT", "int32_t"},
    {"int8_t", "CHAR", "int8_t"},
    {"short", "SHORT", "short"},
    {"uint16_t", "USHORT", "uint16_t"},
    {"uint32_t", "UINT", "uint32_t"},
    {"uint8_t", "BYTE", "uint8_t"},
    {"unsigned char", "BYTE", "unsigned char"},
    {"unsigned int", "UINT", "unsigned int"},
    {"unsigned short", "USHORT", "unsigned short"},
};

constexpr CodeProperties k_codes[] = {
    {"BOOL", 1, true, false, false, false, 0},
    {"CHAR", 1, true, false, true, false, 0},
    {"BYTE", 1, true, false, false, false, 0},
    {"SHORT", 2, true, false, true, false, 0},
    {"USHORT", 2, true, false, false, false, 0},
    {"INT", 4, true, false, true, true, 0x55555555},
    {"UINT", 4, true, false, false, true, 0x55555555},
    {"LONG", 4, true, false, true, true, 0x55555555},
    {"ULONG", 4, true, false, false, true, 0x55555555},
    {"SIZET", 4, true, false, false, true, 0xFFFFFFFF},
    {"TIME", 4, true, false, true, true, -1},
    {"FTIME", 8, true, true, true, true, -1},
    {"DOUBLE", 8, true, true, true, true, 9.999e-99},
    {"FLOAT", 4, true, true, true, false, 0},
    {"STRING", 1, false, false, false, false, 0},
};
// A nested record: its size is the record's.
constexpr CodeProperties k_nested = {"BIN", 0, false, false, false, false, 0};

struct Advice {
    const char *word;
    const char *mend;
};

// Types whose width differs between hosts, and types that have no code.
constexpr Advice k_advice[] = {
    {"QWORD", "there is no 64-bit integer field: use double or two DWORDs"},
    {"UINT", "write unsigned int"},
    {"_Bool", "write BOOL"},
    {"bool", "write BOOL"},
    {"int64_t", "there is no 64-bit integer field: use double or two DWORDs"},
    {"long", "write LONG (32 bits on every host)"},
    {"long double", "write double"},
    {"long int", "write LONG (32 bits on every host)"},
    {"long long", "there is no 64-bit integer field: use double or two DWORDs"},
    {"short int", "write short"},
    {"signed char", "write int8_t"},
    {"signed int", "write int"},
    {"signed long", "write LONG (32 bits on every host)"},
    {"size_t", "write SIZET (32 bits on every host)"},
    {"time_t", "write TIME (32 bits on every host)"},
    {"uint64_t", "there is no 64-bit integer field: use double or two DWORDs"},
    {"unsigned", "write unsigned int"},
    {"unsigned long", "write ULONG (32 bits on every host)"},
    {"unsigned long int", "write ULONG (32 bits on every host)"},
    {"unsigned long long", "there is no 64-bit integer field: use double or two DWORDs"},
    {"unsigned short int", "write unsigned short"},
};

constexpr const char *k_keywords[] = {
    "alignas",   "alignof",  "and",      "and_eq",   "asm",      "auto",    "bitand",    "bitor",
    "bool",      "break",    "case",     "catch",    "char",     "class",   "compl",     "concept",
    "const",     "continue", "decltype", "default",  "delete",   "do",      "double",    "else",
    "enum",      "explicit", "export",   "extern",   "false",    "float",   "for",       "friend",
    "goto",      "if",       "inline",   "int",      "long",     "mutable", "namespace", "new",
    "noexcept",  "not",      "not_eq",   "nullptr",  "operator", "or",      "or_eq",     "private",
    "protected", "public",   "register", "requires", "restrict", "return",  "short",     "signed",
    "sizeof",    "static",   "struct",   "switch",   "template", "this",    "throw",     "true",
    "try",       "typedef",  "typeid",   "typename", "typeof",   "union",   "unsigned",  "using",
    "virtual",   "void",     "volatile", "wchar_t",  "while",    "xor",     "xor_eq",
};

template <typename Row, size_t N>
const Row *find_row(const Row (&rows)[N], const std::string &word) {
    const auto row = std::find_if(std::begin(rows), std::end(rows),
                                  [&](const Row &candidate) { return word == candidate.word; });
    return row == std::end(rows) ? nullptr : row;
}

} // namespace

const CodeProperties &properties_of(const std::string &code) {
    const std::string element = code.rfind("A_", 0) == 0 ? code.substr(2) : code;
    for (const CodeProperties &properties : k_codes)
        if (element == properties.code)
            return properties;
    return k_nested;
}

const ScalarType *find_scalar(const std::string &word) {
    return find_row(k_scalars, word);
}

const char *advice_for_type(const std::string &word) {
    const Advice *advice = find_row(k_advice, word);
    return advice ? advice->mend : nullptr;
}

bool is_keyword(const std::string &word) {
    return std::find(std::begin(k_keywords), std::end(k_keywords), word) != std::end(k_keywords);
}

} // namespace zebgen
