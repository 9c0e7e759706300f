// The library's dynamic symbols are the names that the public headers mark, and no others.
#include "shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace {

using ::testing::Contains;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// Headers without comments, preprocessor lines and texts.
std::string Code(std::string text)
{
    text = std::regex_replace(text, std::regex(R"(/\*[^*]*\*+([^/*][^*]*\*+)*/|//[^\n]*)"), " ");
    return std::regex_replace(text, std::regex(R"(\n#[^\n]*)"), "\n");
}

struct tsDocumented {
    std::set<std::string> classes, functions, data;

    void Add(const std::string& header)
    {
        std::string code = Code(header);
        std::regex mark(R"((class\s+|struct\s+)?VX_EXPORT\s+([^;{]*)[;{])");
        for (std::sregex_iterator it(code.begin(), code.end(), mark), end; it != end; ++it) {
            if (!(*it)[1].matched) AddDeclaration((*it)[2]);
        }
        std::regex type(R"((?:class|struct)\s+VX_EXPORT\s+(\w+))");
        for (std::sregex_iterator it(code.begin(), code.end(), type), end; it != end; ++it) {
            classes.insert((*it)[1]);
        }
    }

    void AddDeclaration(const std::string& text)
    {
        std::smatch found;
        if (std::regex_search(text, found, std::regex(R"((operator[^\s\w(]+|\w+)\s*\()")))
            functions.insert(found[1]);
        else if (std::regex_search(text, found, std::regex(R"((\w+)\s*(\[\w*\])?$)"))) {
            data.insert(found[1]);
        }
    }

    // `name` is a demangled symbol.
    bool Has(std::string name) const
    {
        static const std::regex prefix(
            R"(^(vtable for |typeinfo for |typeinfo name for |VTT for |guard variable for |(non-)?virtual thunk to ))");
        bool isType = std::regex_search(name, std::regex(R"(^(vtable|typeinfo|VTT))"));
        name = std::regex_replace(name, prefix, "");
        std::smatch found;
        bool isOperator = name.rfind("operator", 0) == 0;
        std::string head = name.substr(0, name.find_first_of(isOperator ? "(" : "(<["));
        size_t space = head.rfind(' '); // the result type of a template
        if (space != std::string::npos) head = head.substr(space + 1);
        size_t scope = head.find("::");
        if (scope != std::string::npos) return classes.count(head.substr(0, scope)) > 0;
        if (isType) return classes.count(head) > 0;
        return functions.count(head) > 0 || data.count(head) > 0;
    }
};

tsDocumented Headers()
{
    tsDocumented documented;
    for (const std::string& header : Split(VX_PUBLIC_HEADERS, ':')) {
        documented.Add(ReadFile(header));
    }
    // Macros make vx_basename of basename, and both are exported.
    for (const char* name : {"basename", "dirname"}) {
        if (documented.functions.count(name) > 0)
            documented.functions.insert(std::string("vx_") + name);
    }
    return documented;
}

bool OfSanitizer(const std::string& name)
{
    return std::regex_search(name,
                             std::regex(R"(^_*(asan|tsan|ubsan|lsan|odr_asan|sanitizer)[._])"));
}

std::vector<std::string> Exported(bool demangled)
{
    std::string nm = std::string("nm -D --defined-only ") + (demangled ? "-C " : "");
    std::vector<std::string> names;
    for (const std::string& line : Split(Output(nm + VX_LIBRARY), '\n')) {
        std::smatch found; // address, kind, name
        if (std::regex_match(line, found, std::regex(R"(^[0-9a-f]+ \S (.*)$)")) &&
            !OfSanitizer(found[1])) {
            names.push_back(found[1]);
        }
    }
    return names;
}

} // namespace

TEST(Symbols, NoneIsExportedThatNoPublicHeaderMarks)
{
    tsDocumented documented = Headers();
    std::vector<std::string> exported = Exported(true), foreign;
    ASSERT_THAT(exported, SizeIs(Ge(80u)));
    for (const std::string& name : exported) {
        if (!documented.Has(name)) foreign.push_back(name);
    }
    EXPECT_THAT(foreign, IsEmpty());
}

TEST(Symbols, EveryMarkedFunctionAndVariableIsExported)
{
    tsDocumented documented = Headers();
    std::set<std::string> exported;
    for (const std::string& name : Exported(true))
        exported.insert(name.substr(0, name.find('(')));
    for (const std::string& name : documented.functions)
        EXPECT_THAT(exported, Contains(name));
    for (const std::string& name : documented.data)
        EXPECT_THAT(exported, Contains(name));
}

TEST(Symbols, EveryMarkedClassHasExportedMembers)
{
    std::set<std::string> seen;
    for (const std::string& name : Exported(true)) {
        std::smatch found;
        std::regex member(R"(^(?:.* )?(\w+)::|(?:vtable|typeinfo) for (\w+)$)");
        if (std::regex_search(name, found, member)) seen.insert(found[1].str() + found[2].str());
    }
    for (const std::string& name : Headers().classes)
        EXPECT_THAT(seen, Contains(name));
}

TEST(Symbols, CameraFunctionsHavePlainNamesButOne)
{
    std::string code = Code(ReadFile(VX_SOURCE_DIR "/camera/vxcamiface.h")) +
                       Code(ReadFile(VX_SOURCE_DIR "/camera/vxcamext.h"));
    std::set<std::string> declared, plain, mangled;
    std::regex function(R"(\b(VX\w+)\s*\()");
    for (std::sregex_iterator it(code.begin(), code.end(), function), end; it != end; ++it) {
        declared.insert((*it)[1]);
    }
    for (const std::string& name : Exported(false)) {
        if (name.rfind("VX", 0) == 0) plain.insert(name);
        if (std::regex_search(name, std::regex(R"(^_Z\d+VX)"))) mangled.insert(name);
    }
    ASSERT_EQ(declared.size(), 102u);
    EXPECT_EQ(declared.erase("VXGetExposureTimeEx"), 1u);
    EXPECT_EQ(plain, declared);
    EXPECT_EQ(mangled, std::set<std::string>{"_Z19VXGetExposureTimeExiPl"});
}

TEST(Symbols, ReaderTellsOwnNamesFromForeignOnes)
{
    tsDocumented documented;
    documented.Add("class VX_EXPORT tcThing : public tcOther\n{\n};\n"
                   "/* VX_EXPORT int NotThis(); */ // VX_EXPORT int NorThis();\n"
                   "VX_EXPORT int DoThing(int a);\nextern VX_EXPORT int gnThings;\n"
                   "VX_EXPORT char* BaseName(char*) noexcept __asm__(\"basename\");\n"
                   "VX_EXPORT std::ostream& operator<<(std::ostream&, const tcThing&);\n");
    for (const char* name :
         {"tcThing::Run(int)", "vtable for tcThing", "typeinfo name for tcThing", "DoThing",
          "DoThing(int)", "gnThings", "void tcThing::log<int>(int)", "tcThing::tcInner::Go()",
          "non-virtual thunk to tcThing::~tcThing()", "BaseName(char*)",
          "operator<<(std::ostream&, tcThing const&)", "guard variable for tcThing::Get()::x"}) {
        EXPECT_TRUE(documented.Has(name)) << name;
    }
    for (const char* name :
         {"std::vector<int>::push_back(int&&)", "NotThis", "NorThis()", "vtable for tcOther",
          "tcOther::Run(int)", "operator>>(std::istream&, tcThing&)",
          "void std::sort<tcThing*>(tcThing*)", "typeinfo for std::exception",
          "std::map<int, tcThing>::at(int const&)"}) {
        EXPECT_FALSE(documented.Has(name)) << name;
    }
}
