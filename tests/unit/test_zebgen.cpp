// What zebgen understands, what it refuses and in which words, and what it writes.
#include "checks.h"
#include "emit.h"
#include "parser.h"
#include "support.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

using namespace zebgen;
using zeb::test::read_file;
using zeb::test::ScopedEnv;
using zeb::test::TempDir;
using zeb::test::write_file;

namespace {

struct Result {
    Catalogue catalogue;
    std::vector<std::string> errors;
};

struct Header {
    std::string path;
    std::string text;
};

Result generate(const std::vector<Header> &headers) {
    Problems problems;
    std::vector<Source> sources;
    for (const Header &header : headers)
        sources.push_back(parse(header.path, '"' + header.path + '"', header.text, problems));
    Result result;
    result.catalogue = merge(sources, problems);
    for (const Problem &problem : problems)
        result.errors.push_back(text_of(problem));
    return result;
}

Result generate(const std::string &text) {
    return generate({{"t.h", text}});
}

// One line of members, at line 3, in a packed record.
std::string packed(const std::string &members) {
    return "#pragma pack(push, 4)\ntypedef struct {\n" + members +
           "\n} NET_T;\n#pragma pack(pop)\n";
}

void expect_error(const std::string &text, const std::string &error) {
    const Result result = generate(text);
    ASSERT_EQ(result.errors.size(), 1u)
        << text << "\nfirst: " << (result.errors.empty() ? "none" : result.errors[0])
        << (result.errors.size() > 1 ? "\nsecond: " + result.errors[1] : "");
    EXPECT_EQ(result.errors[0], error) << text;
}

std::vector<Field> fields_of(const std::string &members) {
    const Result result = generate(packed(members));
    for (const std::string &error : result.errors)
        ADD_FAILURE() << error;
    return result.catalogue.records.empty() ? std::vector<Field>()
                                            : result.catalogue.records[0].fields;
}

std::string comment_of(const std::string &members) {
    const std::vector<Field> fields = fields_of(members);
    return fields.empty() ? "no field" : fields[0].comment;
}

struct TypeRow {
    const char *declaration;
    const char *code;
    const char *type;
};

} // namespace

TEST(ZebgenTypes, MapsEveryScalarToItsCodeAndWord) {
    for (const TypeRow &row :
         std::initializer_list<TypeRow>{{"BOOL", "BOOL", "BOOL"},
                                        {"char", "CHAR", "char"},
                                        {"int8_t", "CHAR", "int8_t"},
                                        {"BYTE", "BYTE", "BYTE"},
                                        {"unsigned char", "BYTE", "unsigned char"},
                                        {"uint8_t", "BYTE", "uint8_t"},
                                        {"short", "SHORT", "short"},
                                        {"int16_t", "SHORT", "int16_t"},
                                        {"unsigned short", "USHORT", "unsigned short"},
                                        {"WORD", "USHORT", "WORD"},
                                        {"uint16_t", "USHORT", "uint16_t"},
                                        {"int", "INT", "int"},
                                        {"int32_t", "INT", "int32_t"},
                                        {"unsigned int", "UINT", "unsigned int"},
                                        {"unsigned\n  int", "UINT", "unsigned int"},
                                        {"DWORD", "UINT", "DWORD"},
                                        {"uint32_t", "UINT", "uint32_t"},
                                        {"LONG", "LONG", "long"},
                                        {"ULONG", "ULONG", "unsigned long"},
                                        {"SIZET", "SIZET", "size_t"},
                                        {"TIME", "TIME", "time_t"},
                                        {"FTIME", "FTIME", "FTIME"},
                                        {"double", "DOUBLE", "double"},
                                        {"float", "FLOAT", "float"}}) {
        const std::vector<Field> scalar = fields_of(std::string(row.declaration) + " x;");
        ASSERT_EQ(scalar.size(), 1u) << row.declaration;
        EXPECT_EQ(scalar[0].code, row.code);
        EXPECT_EQ(scalar[0].type, row.type);
        const std::vector<Field> array = fields_of(std::string(row.declaration) + " x[3];");
        ASSERT_EQ(array.size(), 1u) << row.declaration;
        EXPECT_EQ(array[0].code, std::string("A_") + row.code);
        EXPECT_EQ(array[0].type, row.type);
    }
}

TEST(ZebgenTypes, StringKeepsItsOwnCode) {
    const std::vector<Field> fields = fields_of("STRING s[32];");
    ASSERT_EQ(fields.size(), 1u);
    EXPECT_EQ(fields[0].code, "STRING");
    EXPECT_EQ(fields[0].type, "STRING");
}

TEST(ZebgenTypes, NestedRecordIsBinWithOrWithoutLength) {
    const Result result = generate("#pragma pack(push, 4)\ntypedef struct { int i; } A;\n"
                                   "typedef struct { A one; A many[4]; } B;\n#pragma pack(pop)\n");
    ASSERT_TRUE(result.errors.empty()) << result.errors[0];
    const std::vector<Field> &fields = result.catalogue.records[1].fields;
    EXPECT_EQ(fields[0].name, "many");
    EXPECT_EQ(fields[0].code, "BIN");
    EXPECT_EQ(fields[0].type, "A");
    EXPECT_TRUE(fields[0].array);
    EXPECT_EQ(fields[1].name, "one");
    EXPECT_EQ(fields[1].code, "BIN");
    EXPECT_FALSE(fields[1].array);
}

TEST(ZebgenTypes, WidthsThatDifferBetweenHostsNameTheWordToUse) {
    for (const auto &[type, mend] : std::initializer_list<std::pair<const char *, const char *>>{
             {"time_t", "write TIME (32 bits on every host)"},
             {"long", "write LONG (32 bits on every host)"},
             {"long int", "write LONG (32 bits on every host)"},
             {"unsigned long", "write ULONG (32 bits on every host)"},
             {"size_t", "write SIZET (32 bits on every host)"}})
        expect_error(packed(std::string("  ") + type + " x;"),
                     std::string("t.h:3:3: error: type '") + type +
                         "' cannot be used in a record; " + mend);
}

TEST(ZebgenTypes, RefusesTypesWithoutACode) {
    const std::string wide = "' cannot be used in a record; there is no 64-bit integer field: use "
                             "double or two DWORDs";
    for (const char *type : {"QWORD", "int64_t", "uint64_t", "long long", "unsigned long long"})
        expect_error(packed(std::string(type) + " x;"),
                     std::string("t.h:3:1: error: type '") + type + wide);
    expect_error(packed("bool x;"),
                 "t.h:3:1: error: type 'bool' cannot be used in a record; write BOOL");
    expect_error(packed("unsigned x;"),
                 "t.h:3:1: error: type 'unsigned' cannot be used in a record; write unsigned int");
    expect_error(packed("void x;"), "t.h:3:1: error: type 'void' cannot be used in a record; use a "
                                    "type of <zeb2/port.h> or a record");
    expect_error(packed("FTIME double x;"),
                 "t.h:3:1: error: type 'FTIME double' cannot be used in a record; use a type of "
                 "<zeb2/port.h> or a record");
}

TEST(ZebgenMembers, RefusesAnUnknownType) {
    expect_error(packed("  NET_OTHER x;"),
                 "t.h:3:3: error: type 'NET_OTHER' is unknown; use a type of <zeb2/port.h> or a "
                 "record of these headers");
}

TEST(ZebgenMembers, RefusesPointers) {
    const std::string rest = ": error: pointer within a record; a record carries its bytes: use an "
                             "array of fixed length";
    expect_error(packed("char *x;"), "t.h:3:6" + rest);
    expect_error(packed("char x, *y;"), "t.h:3:7: error: two members in one declaration; declare "
                                        "each by itself");
    expect_error(packed("void (*call)(int);"), "t.h:3:6" + rest);
}

TEST(ZebgenMembers, RefusesBitFields) {
    expect_error(packed("int x : 3;"),
                 "t.h:3:7: error: bit-field within a record; declare a WORD of flags");
}

TEST(ZebgenMembers, RefusesUnionsEnumsAndStructs) {
    expect_error(packed("union { int a; float b; } x;"),
                 "t.h:3:1: error: 'union' within a record; give each member a field of its own");
    expect_error(packed("enum E x;"), "t.h:3:1: error: 'enum' within a record; write int");
    expect_error(
        packed("struct { int a; } x;"),
        "t.h:3:1: error: 'struct' within a record; declare the nested record by itself and "
        "use its name");
    expect_error(packed("const int x;"), "t.h:3:1: error: 'const' within a record; leave it out");
}

TEST(ZebgenMembers, RefusesArraysOfArrays) {
    expect_error(packed("int x[3][4];"),
                 "t.h:3:9: error: array of arrays; nest a record that holds the inner array");
}

TEST(ZebgenMembers, RefusesTwoDeclaratorsInOneLine) {
    expect_error(packed("int x, y;"),
                 "t.h:3:6: error: two members in one declaration; declare each by itself");
    expect_error(packed("int x[2], y;"),
                 "t.h:3:9: error: two members in one declaration; declare each by itself");
}

TEST(ZebgenMembers, RefusesStringThatIsNoArray) {
    expect_error(packed("STRING s;"),
                 "t.h:3:8: error: STRING 's' is not an array; write 'STRING s[CAPACITY];'");
}

TEST(ZebgenMembers, RefusesAMemberDeclaredTwice) {
    expect_error(
        packed("int x;\nfloat x;"),
        "t.h:4:7: error: member 'x' is declared twice (first at t.h:3); rename or remove one");
}

TEST(ZebgenMembers, RefusesIncompleteMembers) {
    const std::string form = "; write 'TYPE name;' or 'TYPE name[LENGTH];'";
    expect_error(packed("int;"), "t.h:3:1: error: 'int' lacks a type or a name" + form);
    expect_error(packed("int x = 3;"), "t.h:3:7: error: '=' is not understood here" + form);
    expect_error(packed("int x\nint y;"),
                 "t.h:3:1: error: type 'int x int' cannot be used in a record; use a type of "
                 "<zeb2/port.h> or a record");
    expect_error(packed("int x"), "t.h:4:1: error: '}' is not understood here" + form);
    expect_error(packed("int i;\n;"), "t.h:4:1: error: ';' is not understood here" + form);
}

TEST(ZebgenMembers, RefusesWordsOfTheLanguageAsNames) {
    expect_error(packed("int class;"), "t.h:3:5: error: 'class' cannot be a name; it is a word of "
                                       "the language");
    expect_error(packed("int BYTE;"), "t.h:3:5: error: 'BYTE' cannot be a name; it is a word of "
                                      "the language");
}

TEST(ZebgenMembers, RefusesPreprocessorLinesWithinARecord) {
    expect_error(packed("int x;\n#define N 3\nint y;"),
                 "t.h:4:1: error: preprocessor line within a record; declare the record "
                 "unconditionally");
}

TEST(ZebgenLengths, AcceptsNumbersAndConstants) {
    const Result result = generate(
        {{"a.h", "#define N 7\n#define H 0x10u\n" + packed("int a[N];\nint b[H];\nint c[65535];\n"
                                                           "int d[1];\nint e[OTHER];")},
         {"b.h", "#define OTHER 12 /* shared */\n"}});
    for (const std::string &error : result.errors)
        ADD_FAILURE() << error;
    EXPECT_EQ(result.catalogue.records[0].fields[0].length, "N");
}

TEST(ZebgenLengths, RefusesZeroAndMoreThanTheWireCounts) {
    expect_error(packed("int x[0];"),
                 "t.h:3:7: error: array length 0 is out of range; use 1 to 65535");
    expect_error(packed("int x[65536];"),
                 "t.h:3:7: error: array length 65536 is out of range; use 1 to 65535");
    expect_error("#define N -1\n" + packed("int x[N];"),
                 "t.h:4:7: error: array length -1 is out of range; use 1 to 65535");
}

TEST(ZebgenLengths, RefusesWhatIsNoKnownInteger) {
    const std::string mend = "; write a number or the name of an integer #define of these headers";
    expect_error(packed("int x[N];"), "t.h:3:7: error: array length 'N' is unknown" + mend);
    expect_error(packed("int x[3q];"), "t.h:3:7: error: array length '3q' is unknown" + mend);
    expect_error(packed("int x[99999999999999999999];"),
                 "t.h:3:7: error: array length '99999999999999999999' is unknown" + mend);
    const std::string form = "; write a number or the name of an integer #define between [ and ]";
    expect_error(packed("int x[];"), "t.h:3:7: error: ']' is not understood here" + form);
    expect_error(packed("int x[2+2];"), "t.h:3:8: error: '+' is not understood here" + form);
}

TEST(ZebgenComments, TrailingCommentBelongsToItsMember) {
    EXPECT_EQ(comment_of("double x; /* Flow (slpm) | Q_${INST:A\\d+} */"),
              "Flow (slpm) | Q_${INST:A\\d+}");
    EXPECT_EQ(comment_of("double x; // Flow (slpm)"), "Flow (slpm)");
    EXPECT_EQ(comment_of("double x;/* tight */"), "tight");
    EXPECT_EQ(comment_of("double x; /* *instant */"), "*instant");
    EXPECT_EQ(comment_of("double x; // *instant"), "*instant");
    EXPECT_EQ(comment_of("double x;"), "");
    EXPECT_EQ(comment_of("double x; /**/"), "");
}

TEST(ZebgenComments, WhiteSpaceIsFoldedToOneLine) {
    EXPECT_EQ(comment_of("double x; /*  Flow \t (slpm)\n             | Q */"), "Flow (slpm) | Q");
    EXPECT_EQ(comment_of("double x; /* Flow\n             * of * air\n             */"),
              "Flow of * air");
    EXPECT_EQ(comment_of("double x; // Flow\r"), "Flow");
}

TEST(ZebgenComments, ContinuesOnLinesIndentedDeeper) {
    EXPECT_EQ(comment_of("double x; // Flow\n          // (slpm)\nint y; // other"), "Flow (slpm)");
    EXPECT_EQ(comment_of("  double x;\n    /* Flow\n       (slpm) */\n    // | Q\n  int y;"),
              "Flow (slpm) | Q");
    EXPECT_EQ(comment_of("double x; /* Flow */ /* (slpm) */"), "Flow (slpm)");
}

TEST(ZebgenComments, CommentAtTheMembersColumnIsForReaders) {
    EXPECT_EQ(comment_of("  double x;\n  /* The next one. */\n  int y;"), "");
    EXPECT_EQ(comment_of("  double x; // Flow\n  // The next one.\n  int y;"), "Flow");
    EXPECT_EQ(comment_of("  double x;\n\n    /* After an empty line. */\n  int y;"), "");
    EXPECT_EQ(comment_of("  /* Above. */\n  double x;"), "");
}

TEST(ZebgenComments, CommentsMayStandAnywhere) {
    const std::vector<Field> fields =
        fields_of("/* a */ unsigned /* b */ int /* c */ x /* d */ [ /* e */ 3 ] ; /* f */");
    ASSERT_EQ(fields.size(), 1u);
    EXPECT_EQ(fields[0].type, "unsigned int");
    EXPECT_EQ(fields[0].comment, "f");
}

TEST(ZebgenRecords, AcceptsATagAndMacrosThatGuard) {
    const Result result = generate("/* t.h */\n#ifndef T_H\n#define T_H\n#include <zeb2/port.h>\n"
                                   "#include \"other.h\"\n#  pragma pack(push, 4)\n"
                                   "typedef struct tag { int i; } NET_T;\n#pragma pack( pop )\n"
                                   "ZEB_MESSAGE(MSG_T, \"t\", NET_T);\n"
                                   "ZEB_MESSAGE_BARE ( MSG_U , \"*\" ) ;\n#endif // T_H\n");
    for (const std::string &error : result.errors)
        ADD_FAILURE() << error;
    ASSERT_EQ(result.catalogue.records.size(), 1u);
    ASSERT_EQ(result.catalogue.messages.size(), 2u);
    EXPECT_EQ(result.catalogue.messages[0].record, "NET_T");
    EXPECT_EQ(result.catalogue.messages[1].record, "");
    EXPECT_EQ(result.catalogue.messages[1].meta, "*");
}

TEST(ZebgenRecords, AcceptsPragmaOnceAndDosLineEnds) {
    const Result result =
        generate("#pragma once\r\n#pragma pack(push, 4)\r\ntypedef struct {\r\n  int i; // I\r\n"
                 "} NET_T;\r\n#pragma pack(pop)\r\n");
    for (const std::string &error : result.errors)
        ADD_FAILURE() << error;
    EXPECT_EQ(result.catalogue.records.at(0).fields.at(0).comment, "I");
}

TEST(ZebgenRecords, RefusesARecordOutsideThePackPragmas) {
    const std::string mend =
        " is not packed; put '#pragma pack(push, 4)' before it and '#pragma pack(pop)' after it";
    expect_error("typedef struct { int i; } NET_T;\n", "t.h:1:1: error: record 'NET_T'" + mend);
    expect_error(packed("int i;") + "\ntypedef struct { int i; } NET_U;\n",
                 "t.h:7:1: error: record 'NET_U'" + mend);
}

TEST(ZebgenRecords, RefusesPackPragmasWithoutTheirCounterparts) {
    expect_error("#pragma pack(push, 4)\ntypedef struct { int i; } NET_T;\n",
                 "t.h:1:1: error: '#pragma pack(push, 4)' is never undone; write '#pragma "
                 "pack(pop)' after the last record");
    expect_error("#pragma pack(pop)\n" + packed("int i;"),
                 "t.h:1:1: error: nothing to pop; write each push with its pop");
    expect_error("#pragma pack(push, 4)\n" + packed("int i;"),
                 "t.h:2:1: error: '#pragma pack(push, 4)' within another; write each push with its "
                 "pop");
}

TEST(ZebgenRecords, RefusesOtherPragmas) {
    const std::string rest = ": error: '#pragma' is not understood here; records lie between "
                             "'#pragma pack(push, 4)' and '#pragma pack(pop)'";
    expect_error("  #pragma pack(push, 1)\n", "t.h:1:3" + rest);
    expect_error("#pragma GCC poison x\n", "t.h:1:1" + rest);
}

TEST(ZebgenRecords, RefusesARecordDeclaredTwice) {
    const Result result = generate({{"a.h", packed("int i;")}, {"b.h", packed("float f;")}});
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0], "b.h:4:3: error: record 'NET_T' is declared twice (first at "
                                "a.h:4); rename or remove one");
}

TEST(ZebgenRecords, RefusesAnEmptyRecord) {
    expect_error(packed(""),
                 "t.h:4:3: error: record 'NET_T' is empty; give it a member, or tie its "
                 "messages to no record with ZEB_MESSAGE_BARE");
}

TEST(ZebgenRecords, RefusesARecordNestedInItself) {
    expect_error(packed("int i;\n  NET_T again;"),
                 "t.h:4:3: error: record 'NET_T' is nested in itself; a record has a fixed size: "
                 "remove the member");
}

TEST(ZebgenRecords, RefusesRecordsNestedInEachOther) {
    expect_error("#pragma pack(push, 4)\ntypedef struct { NET_B b; } NET_A;\n"
                 "typedef struct { NET_C c; } NET_B;\ntypedef struct { NET_A a; } NET_C;\n"
                 "#pragma pack(pop)\n",
                 "t.h:4:18: error: record 'NET_A' is nested in itself; a record has a fixed size: "
                 "remove the member");
}

namespace {

// Each record nests the one before.
std::string chain_of(int records) {
    std::string text = "#pragma pack(push, 4)\ntypedef struct { int i; } NET_0;\n";
    for (int i = 1; i < records; i++)
        text += "typedef struct { NET_" + std::to_string(i - 1) + " x; } NET_" + std::to_string(i) +
                ";\n";
    return text + "#pragma pack(pop)\n";
}

} // namespace

TEST(ZebgenRecords, LimitsTheDepthOfNestedRecords) {
    EXPECT_TRUE(generate(chain_of(33)).errors.empty());
    expect_error(chain_of(34),
                 "t.h:35:30: error: record 'NET_33' nests records 33 deep; use at most 32");
}

TEST(ZebgenRecords, ReportsAnEndlessChainOfRecordsOnce) {
    expect_error(chain_of(50000),
                 "t.h:35:30: error: record 'NET_33' nests records 33 deep; use at most 32");
}

TEST(ZebgenRecords, LimitsTheLengthOfNames) {
    const std::string longest(255, 'n');
    const Result result = generate("#pragma pack(push, 4)\ntypedef struct { int i; } " + longest +
                                   ";\n#pragma pack(pop)\n");
    EXPECT_TRUE(result.errors.empty());
    expect_error("#pragma pack(push, 4)\ntypedef struct { int i; } " + longest +
                     "n;\n#pragma pack(pop)\n",
                 "t.h:2:27: error: name of 256 characters; use at most 255");
}

TEST(ZebgenRecords, RefusesMalformedRecords) {
    const std::string form = "; write 'typedef struct { TYPE member; ... } NAME;'";
    expect_error("typedef int NUMBER;\n", "t.h:1:9: error: 'int' is not understood here" + form);
    expect_error("typedef enum { A, B } E;\n",
                 "t.h:1:9: error: 'enum' is not understood here" + form);
    expect_error("#pragma pack(push, 4)\ntypedef struct { int i; } *NET_T;\n#pragma pack(pop)\n",
                 "t.h:2:27: error: '*' is not understood here" + form);
    expect_error("#pragma pack(push, 4)\ntypedef struct { int i; } NET_T, NET_U;\n"
                 "#pragma pack(pop)\n",
                 "t.h:2:32: error: ',' is not understood here" + form);
    expect_error("#pragma pack(push, 4)\n#pragma pack(pop)\ntypedef struct { int i;",
                 "t.h:3:24: error: file ends too early" + form);
}

TEST(ZebgenFiles, RefusesAnythingElse) {
    const std::string mend =
        "; a definition header holds records ('typedef struct { ... } NAME;'), "
        "messages and integer constants only";
    expect_error("struct S { int i; };\n",
                 "t.h:1:1: error: 'struct' is not understood here" + mend);
    expect_error("extern int x;\n", "t.h:1:1: error: 'extern' is not understood here" + mend);
    expect_error("extern \"C\" { int f(void); }\nint x;\n",
                 "t.h:1:1: error: 'extern' is not understood here" + mend);
    expect_error("\n  ;\n", "t.h:2:3: error: ';' is not understood here" + mend);
}

TEST(ZebgenFiles, RefusesConditionalsAndOtherPreprocessorLines) {
    const std::string mend = " is not understood here; leave nothing but an include guard to the "
                             "preprocessor";
    expect_error("#if 1\n", "t.h:1:1: error: '#if'" + mend);
    expect_error("#undef X\n", "t.h:1:1: error: '#undef'" + mend);
    expect_error("#include <a.h>\n#ifndef T_H\n", "t.h:2:1: error: '#ifndef'" + mend);
    expect_error("#include <a.h>\n#endif\n", "t.h:2:1: error: '#endif'" + mend);
    expect_error("#include nothing\n", "t.h:1:1: error: malformed '#include'; write '#include "
                                       "<NAME>' or '#include \"NAME\"'");
    expect_error("#ifndef T_H\n#define T_H\n",
                 "t.h:1:1: error: include guard is never closed; end the file with '#endif'");
}

TEST(ZebgenFiles, RefusesMacrosThatAreNoIntegers) {
    const std::string mend =
        " is not an integer constant; write '#define NAME 123' or keep it out of "
        "definition headers";
    expect_error("#define N\n", "t.h:1:9: error: macro 'N'" + mend);
    expect_error("#define N \"3\"\n", "t.h:1:9: error: macro 'N'" + mend);
    expect_error("#define N (3)\n", "t.h:1:9: error: macro 'N'" + mend);
    expect_error("#define N 1.5\n", "t.h:1:9: error: macro 'N'" + mend);
    expect_error("#define F(x) 3\n", "t.h:1:9: error: macro 'F'" + mend);
    expect_error("#define\n", "t.h:1:1: error: malformed '#define'; write '#define NAME 123'");
    expect_error("#define WORD 3\n",
                 "t.h:1:9: error: macro 'WORD' hides a word of the language; rename it");
    expect_error(
        "#define N 1\n#define N 2\n",
        "t.h:2:9: error: macro 'N' is declared twice (first at t.h:1); rename or remove one");
}

TEST(ZebgenFiles, RefusesACommentThatNeverEnds) {
    expect_error(packed("int i;") + "  /* open\n\n",
                 "t.h:6:3: error: comment is never closed; end it with */");
}

TEST(ZebgenFiles, RefusesBinaryFilesWithOneLine) {
    const std::string mend = "; a definition header is plain text";
    expect_error(std::string("int i;\n\0\0\0", 10), "t.h:2:1: error: NUL byte" + mend);
    expect_error("// \x07\n", "t.h:1:4: error: control character" + mend);
    expect_error("// \xff\n", "t.h:1:4: error: byte that is not UTF-8" + mend);
    expect_error("// \xc3", "t.h:1:4: error: byte that is not UTF-8" + mend);
    expect_error("// \xed\xa0\x80\n", "t.h:1:4: error: byte that is not UTF-8" + mend);
}

TEST(ZebgenFiles, RefusesCharactersOutsideAsciiInCode) {
    expect_error(packed("int i;") + "\xc2\xb5\xc2\xb5",
                 "t.h:6:1: error: character outside ASCII; use it in comments only");
    EXPECT_EQ(comment_of("int i; // \xc2\xb5m"), "\xc2\xb5m");
}

TEST(ZebgenFiles, RefusesAByteOrderMark) {
    expect_error("\xef\xbb\xbf" + packed("int i;"),
                 "t.h:1:1: error: character outside ASCII; use it in comments only");
}

// Constants, members and messages by the thousand: nothing is looked for one by one.
TEST(ZebgenFiles, ReadsLargeHeaders) {
    std::string defines;
    std::string members;
    std::string messages;
    for (int i = 0; i < 20000; i++) {
        const std::string n = std::to_string(i);
        defines += "#define N" + n + " 2\n";
        members += "int i" + n + "[N" + n + "];\n";
        messages += "ZEB_MESSAGE_BARE(MSG_" + n + ", \"t\");\n";
    }
    const Result result = generate(defines + packed(members) + messages);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(result.catalogue.records.at(0).fields.size(), 20000u);
    EXPECT_EQ(result.catalogue.records.at(0).size, 160000u);
    EXPECT_EQ(result.catalogue.messages.size(), 20000u);
}

TEST(ZebgenFiles, SurvivesBracesWithoutEnd) {
    EXPECT_FALSE(generate(packed(std::string(100000, '{'))).errors.empty());
    EXPECT_FALSE(generate(std::string(100000, '}')).errors.empty());
    EXPECT_FALSE(generate(packed("int x" + std::string(100000, '['))).errors.empty());
}

TEST(ZebgenFiles, RefusesSplicedLines) {
    expect_error(packed("int i; // a \\\n  b"),
                 "t.h:3:13: error: line goes on after '\\'; write it on one line");
}

TEST(ZebgenFiles, RefusesAFileThatDeclaresNothing) {
    expect_error("/* nothing */\n", "t.h:1:1: error: file declares nothing; leave it out");
}

TEST(ZebgenFiles, ReportsEveryProblemOfARun) {
    const Result result = generate(
        "int x;\n#pragma pack(push, 4)\ntypedef struct {\n  long a;\n  int b:3;\n  char *c;\n"
        "  double d;\n} NET_T;\ntypedef union { int i; } NET_U;\n#pragma pack(pop)\n"
        "ZEB_MESSAGE(MSG_T, \"T\", NET_V);\n");
    ASSERT_EQ(result.errors.size(), 7u);
    const char *starts[] = {"t.h:1:1: error: 'int'",           "t.h:4:3: error: type 'long'",
                            "t.h:5:8: error: bit-field",       "t.h:6:8: error: pointer",
                            "t.h:9:9: error: 'union'",         "t.h:11:20: error: meta type",
                            "t.h:11:25: error: record 'NET_V'"};
    for (size_t i = 0; i < 7; i++)
        EXPECT_EQ(result.errors[i].rfind(starts[i], 0), 0u) << result.errors[i];
}

// A little of everything; whatever becomes of it, the run ends with a verdict.
const char k_everything[] = "/* t.h */\n#ifndef T_H\n#define T_H\n#include <zeb2/port.h>\n"
                            "#define N 3\n#pragma pack(push, 4)\ntypedef struct t {\n"
                            "  unsigned int i; // I\n} NET_A;\ntypedef struct {\n"
                            "  NET_A a[N]; /* \xc2\xb5\n  b */\n} NET_B;\n#pragma pack(pop)\n"
                            "ZEB_MESSAGE(MSG_A, \"a\", NET_A);\nZEB_MESSAGE_BARE(MSG_B, \"*\");\n"
                            "#endif\n";

TEST(ZebgenFiles, SurvivesEveryTruncation) {
    const std::string whole = k_everything;
    ASSERT_TRUE(generate(whole).errors.empty());
    for (size_t size = 0; size < whole.rfind("#endif"); size++)
        EXPECT_FALSE(generate(whole.substr(0, size)).errors.empty()) << size;
}

TEST(ZebgenFiles, SurvivesEveryLostOrAlteredByte) {
    const std::string whole = k_everything;
    for (size_t i = 0; i < whole.size(); i++) {
        std::string broken = whole;
        broken.erase(i, 1);
        generate(broken);
        for (const char byte : {'\0', '{', '}', ';', '"', '#', '[', '\n', '\xff'}) {
            broken = whole;
            broken[i] = byte;
            generate(broken);
        }
    }
}

TEST(ZebgenMessages, RefusesAMessageDeclaredTwice) {
    expect_error("ZEB_MESSAGE_BARE(MSG_T, \"t\");\nZEB_MESSAGE_BARE(MSG_T, \"t\");\n",
                 "t.h:2:18: error: message 'MSG_T' is declared twice (first at t.h:1); rename or "
                 "remove one");
}

TEST(ZebgenMessages, RefusesAMessageNamedLikeARecord) {
    expect_error(packed("int i;") + "ZEB_MESSAGE_BARE(NET_T, \"t\");\n",
                 "t.h:6:18: error: message 'NET_T' is declared twice (first at t.h:4); rename or "
                 "remove one");
}

TEST(ZebgenMessages, RefusesAMessageWhoseRecordDoesNotExist) {
    expect_error(
        "ZEB_MESSAGE(MSG_T, \"t\", NET_T);\n",
        "t.h:1:25: error: record 'NET_T' of message 'MSG_T' is not declared; declare it, or "
        "use ZEB_MESSAGE_BARE for a message without a record");
}

TEST(ZebgenMessages, RefusesAMetaTypeThatIsNoLowercaseWord) {
    for (const char *meta : {"Log", "two words", "", "**", "caf\xc3\xa9"})
        expect_error(std::string("ZEB_MESSAGE_BARE(MSG_T, \"") + meta + "\");\n",
                     std::string("t.h:1:25: error: meta type \"") + meta +
                         "\" is no lowercase word; use small letters, digits and '_', or \"*\" for "
                         "every instrument");
}

TEST(ZebgenMessages, RefusesMalformedMessages) {
    const std::string form = "; write 'ZEB_MESSAGE(NAME, \"meta\", RECORD);'";
    const std::string bare = "; write 'ZEB_MESSAGE_BARE(NAME, \"meta\");'";
    expect_error("ZEB_MESSAGE(MSG_T, \"t\");\n",
                 "t.h:1:23: error: ')' is not understood here" + form);
    expect_error("ZEB_MESSAGE(MSG_T, t, NET_T);\n",
                 "t.h:1:20: error: 't' is not understood here" + form);
    expect_error("ZEB_MESSAGE_BARE(MSG_T, \"t\", NET_T);\n",
                 "t.h:1:28: error: ',' is not understood here" + bare);
    expect_error("ZEB_MESSAGE_BARE(MSG_T, \"t\")\n#define N 3\n",
                 "t.h:2:1: error: '#' is not understood here" + bare);
    expect_error("ZEB_MESSAGE_BARE(\"t\", MSG_T);\n",
                 "t.h:1:18: error: \"t\" is not understood here" + bare);
    expect_error("ZEB_MESSAGE_BARE(int, \"t\");\n",
                 "t.h:1:18: error: 'int' cannot be a name; it is a word of the language");
}

TEST(ZebgenMessages, RefusesAStringThatNeverEnds) {
    const Result result = generate("ZEB_MESSAGE_BARE(MSG_T, \"t);\n");
    ASSERT_GE(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0],
              "t.h:1:25: error: string is never closed; end it with \" on the same line");
}

TEST(ZebgenOutput, SortsByByteOrderNotByDeclaration) {
    const Result result = generate(
        {{"b.h", packed("double start_time;\nNET_A in;\nNET_A ra;\ndouble S;\ndouble Q_1;\n"
                        "double Q1;\ndouble Qa;")},
         {"a.h", "#pragma pack(push, 4)\ntypedef struct { int i; } NET_A;\n"
                 "typedef struct { int i; } NETDS_Z;\n#pragma pack(pop)\n"
                 "ZEB_MESSAGE_BARE(NET_M, \"t\");\nZEB_MESSAGE_BARE(MSG_SETPOINT, \"t\");\n"
                 "ZEB_MESSAGE_BARE(MSG_SET_PARMS, \"t\");\nZEB_MESSAGE_BARE(MSG_SET, \"t\");\n"}});
    ASSERT_TRUE(result.errors.empty()) << result.errors[0];
    const auto names = [](const auto &items) {
        std::string out;
        for (const auto &item : items)
            out += item.name + " ";
        return out;
    };
    EXPECT_EQ(names(result.catalogue.records), "NETDS_Z NET_A NET_T ");
    EXPECT_EQ(names(result.catalogue.records[2].fields), "Q1 Q_1 Qa S in ra start_time ");
    EXPECT_EQ(names(result.catalogue.messages), "MSG_SET MSG_SETPOINT MSG_SET_PARMS NET_M ");
}

TEST(ZebgenOutput, NumbersTheEnumerationExplicitly) {
    const Result result =
        generate("ZEB_MESSAGE_BARE(MSG_B, \"t\");\nZEB_MESSAGE_BARE(MSG_A, \"t\");\n");
    EXPECT_EQ(emit_messages_header(result.catalogue, {false, "my-app"}),
              "/* Generated by zebgen; changes will be lost. */\n#ifndef ZEB_MY_APP_MSG_LIST_H\n"
              "#define ZEB_MY_APP_MSG_LIST_H\n\n#include <zeb2/port.h>\n\n"
              "typedef enum NETMSG_type ZEB_ENUM32 {\n    MSG_A = 0,\n"
              "    MSG_B = 1,\n} NETMSG_type;\n\n#endif\n");
}

TEST(ZebgenOutput, RecordsHeaderIncludesEveryDefinitionAsSpelled) {
    Catalogue catalogue;
    catalogue.includes = {"<zeb2/definitions/a.h>", "\"b.h\""};
    EXPECT_EQ(emit_records_header(catalogue, {true, ""}),
              "/* Generated by zebgen; changes will be lost. */\n#ifndef ZEB2_RECORDS_H\n"
              "#define ZEB2_RECORDS_H\n\n#include <zeb2/definitions/a.h>\n#include \"b.h\"\n\n"
              "#endif\n");
}

TEST(ZebgenOutput, EscapesStringsByteForByte) {
    EXPECT_EQ(c_string(""), "\"\"");
    EXPECT_EQ(c_string("S_${INST:A\\d+}"), "\"S_${INST:A\\\\d+}\"");
    EXPECT_EQ(c_string("say \"no\""), "\"say \\\"no\\\"\"");
    EXPECT_EQ(c_string("what?\?/"), "\"what?\\?/\"");
    EXPECT_EQ(c_string("\xc2\xb5"
                       "1"),
              "\"\\302\\2651\"");
}

TEST(ZebgenOutput, FieldRowsLeaveNumbersToTheCompiler) {
    const Result result =
        generate(packed("double X[7]; // Black (ug/m3) | X${INDEX:1:2}c_${INST:A\\d+}\n"
                        "WORD flags;"));
    const std::string source = emit_records_source(result.catalogue, {});
    EXPECT_NE(source.find("static const NETDSD_field _ndsd_fl_NET_T[] = {\n"
                          "    ARRAY(NET_T, X, A_DOUBLE, \"double\", \"Black (ug/m3) | "
                          "X${INDEX:1:2}c_${INST:A\\\\d+}\"),\n"
                          "    FIELD(NET_T, flags, USHORT, \"WORD\", \"\"),\n};\n"),
              std::string::npos)
        << source;
}

TEST(ZebgenOutput, OnlyTheLibraryHasPrivateTables) {
    const Result result = generate(packed("int i;") + "ZEB_MESSAGE_BARE(MSG_A, \"t\");\n");
    const auto holds = [](const std::string &text, const char *part) {
        return text.find(part) != std::string::npos;
    };
    for (const bool library : {false, true}) {
        const EmitOptions options = {library, "app"};
        const std::string records = emit_records_source(result.catalogue, options);
        const std::string messages = emit_messages_source(result.catalogue, options);
        EXPECT_EQ(holds(records, "const NETDSD_entry _ndsd_structures[] ="), library);
        EXPECT_EQ(holds(messages, "const NETMSG_entry _nmsg_list[] ="), library);
        EXPECT_TRUE(holds(records, "const NETDSD_entry _ndsd_structures_ext[] ="));
        EXPECT_TRUE(holds(records, "const size_t _ndsd_structures_count_ext ="));
        EXPECT_TRUE(holds(messages, "const NETMSG_entry _nmsg_list_ext[] ="));
        EXPECT_TRUE(holds(messages, "const size_t _nmsg_list_count_ext ="));
    }
}

TEST(ZebgenOutput, RevisionIsABlankAndAUtcTime) {
    EXPECT_NE(emit_revision(1408631041)
                  .find("const char *const g_libzeb2_revision = \" 2014-08-21T14:24:01Z\";"),
              std::string::npos);
}

// The program itself.

namespace {

struct Outcome {
    int status = -1;
    std::string output; // standard output and error
};

Outcome run_zebgen(const TempDir &dir, const std::string &arguments) {
    const std::string log = dir / "log";
    const std::string command = "cd " + dir.path() + " && " +
                                zeb::test::built_path("src/zebgen/zebgen") + " " + arguments +
                                " >" + log + " 2>&1";
    const int status = system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(log)};
}

ino_t inode_of(const std::string &path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

const char k_good[] = "#pragma pack(push, 4)\ntypedef struct { int i; } NET_T;\n#pragma pack(pop)\n"
                      "ZEB_MESSAGE(MSG_T, \"t\", NET_T);\n";

} // namespace

TEST(ZebgenProgram, HelpAndVersionSucceed) {
    const TempDir dir;
    const Outcome help = run_zebgen(dir, "--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.output.find("--out"), std::string::npos);
    const Outcome version = run_zebgen(dir, "--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output.rfind("zebgen ", 0), 0u);
}

TEST(ZebgenProgram, WrongUsageIsStatusTwo) {
    const TempDir dir;
    EXPECT_EQ(run_zebgen(dir, "").status, 2);
    EXPECT_EQ(run_zebgen(dir, "--out out").status, 2);
    EXPECT_EQ(run_zebgen(dir, "--no-such-option").status, 2);
    EXPECT_EQ(run_zebgen(dir, "--out out --headers h t.h").status, 2);
}

TEST(ZebgenProgram, BrokenHeadersFailAndLeaveNothing) {
    const TempDir dir;
    write_file(dir / "a.h", "typedef struct { int i; } NET_T;\n");
    write_file(dir / "b.h", std::string("\0", 1));
    write_file(dir / "c.h", packed("time_t t;"));
    const Outcome run = run_zebgen(dir, "--out out a.h b.h c.h");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(
        run.output,
        "a.h:1:1: error: record 'NET_T' is not packed; put '#pragma pack(push, 4)' before it "
        "and '#pragma pack(pop)' after it\n"
        "b.h:1:1: error: NUL byte; a definition header is plain text\n"
        "c.h:3:1: error: type 'time_t' cannot be used in a record; write TIME (32 bits on every "
        "host)\n"
        "c.h:4:3: error: record 'NET_T' is declared twice (first at a.h:1); rename or remove "
        "one\n");
    EXPECT_EQ(inode_of(dir / "out"), 0u);
}

TEST(ZebgenProgram, UnreadableInputFailsWithTheReason) {
    const TempDir dir;
    const Outcome missing = run_zebgen(dir, "--out out missing.h");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.output, "missing.h: error: cannot be read: No such file or directory\n");
    EXPECT_EQ(run_zebgen(dir, "--out out .").status, 1);
    const Outcome nowhere = run_zebgen(dir, "--out out --station nowhere");
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(nowhere.output, "nowhere: error: cannot be listed: No such file or directory\n");
}

TEST(ZebgenProgram, RefusesHugeFiles) {
    const TempDir dir;
    const std::string reason = ": error: cannot be read: larger than 4194304 bytes\n";
    write_file(dir / "huge.h", k_good + std::string((4u << 20), '\n'));
    EXPECT_EQ(run_zebgen(dir, "--out out huge.h").output, "huge.h" + reason);
    const Outcome endless = run_zebgen(dir, "--out out /dev/zero");
    EXPECT_EQ(endless.status, 1);
    EXPECT_EQ(endless.output, "/dev/zero" + reason);
    const std::string good = k_good;
    write_file(dir / "large.h", good + std::string((4u << 20) - good.size(), '\n'));
    EXPECT_EQ(run_zebgen(dir, "--out out large.h").status, 0);
}

TEST(ZebgenProgram, UnwritableOutputFailsWithTheReason) {
    const TempDir dir;
    write_file(dir / "t.h", k_good);
    write_file(dir / "out", "a file");
    const Outcome run = run_zebgen(dir, "--out out t.h");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "out: error: cannot be made: Not a directory\n");
    ASSERT_EQ(mkdir((dir / "msg_list.c.new").c_str(), 0700), 0);
    EXPECT_EQ(run_zebgen(dir, "--out . t.h").output,
              "./msg_list.c: error: cannot be written: Is a directory\n");
}

TEST(ZebgenProgram, LeavesUnchangedFilesUntouched) {
    const TempDir dir;
    write_file(dir / "t.h", k_good);
    const std::string arguments = "--library --out out --headers inc t.h";
    ASSERT_EQ(run_zebgen(dir, arguments).status, 0);
    const char *files[] = {"out/ds_desc.c", "out/msg_list.c", "out/revision.c", "inc/msg_list.h",
                           "inc/records.h"};
    std::vector<ino_t> before;
    for (const char *file : files)
        before.push_back(inode_of(dir / file));
    ASSERT_EQ(run_zebgen(dir, arguments).status, 0);
    for (size_t i = 0; i < 5; i++)
        EXPECT_EQ(inode_of(dir / files[i]), before[i]) << files[i];
    write_file(dir / "t.h", std::string(k_good) + "ZEB_MESSAGE_BARE(MSG_U, \"t\");\n");
    ASSERT_EQ(run_zebgen(dir, arguments).status, 0);
    EXPECT_NE(read_file(dir / "inc/msg_list.h").find("MSG_U = 1"), std::string::npos);
}

TEST(ZebgenProgram, TakesTheRevisionFromSourceDateEpoch) {
    const TempDir dir;
    write_file(dir / "t.h", k_good);
    const std::string arguments = "--library --out out t.h";
    {
        const ScopedEnv epoch("SOURCE_DATE_EPOCH", "1408631041");
        ASSERT_EQ(run_zebgen(dir, arguments).status, 0);
        EXPECT_NE(read_file(dir / "out/revision.c").find("\" 2014-08-21T14:24:01Z\""),
                  std::string::npos);
    }
    const ScopedEnv epoch("SOURCE_DATE_EPOCH", "yesterday");
    const Outcome run = run_zebgen(dir, arguments);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "SOURCE_DATE_EPOCH: error: no number of seconds since 1970\n");
}

TEST(ZebgenProgram, SpellsIncludesBeneathTheIncludeDirectory) {
    const TempDir dir;
    ASSERT_EQ(mkdir((dir / "station").c_str(), 0700), 0);
    ASSERT_EQ(mkdir((dir / "src").c_str(), 0700), 0);
    write_file(dir / "station/s.h", "#pragma pack(push, 4)\ntypedef struct { int i; } NET_S;\n"
                                    "#pragma pack(pop)\n");
    write_file(dir / "src/t.h", k_good);
    ASSERT_EQ(run_zebgen(dir, "--out out --station station -I src src/t.h").status, 0);
    const std::string records = read_file(dir / "out/records.h");
    EXPECT_NE(records.find("#include <zeb2/definitions/s.h>\n#include \"t.h\"\n"),
              std::string::npos)
        << records;
    EXPECT_EQ(inode_of(dir / "out/revision.c"), 0u);
}
