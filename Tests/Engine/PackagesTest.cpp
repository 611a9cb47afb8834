// Loading packages, good ones and bad ones.
#include "Oxbeam/OxExport.h"
#include "Tests/Support/SceneText.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <random>

using namespace oxbeam::test;

static const fs::path folder = TEST_PACKAGES;

// The message with which something fails for a bad package.
template <class F>
static std::string badPackage(F&& act) {
    return withoutFolder(failure(ExitStatus::BadPackage, act), folder);
}

static std::vector<std::string> textsOf(const Diagnostics& remarks) {
    std::vector<std::string> texts;
    for (const Diagnostic& remark : remarks.sorted()) texts.push_back(remark.text());
    return texts;
}

static std::string failureOf(const fs::path& package) {
    Registry registry;
    std::string message = badPackage([&] { registry.loadPackage(package); });
    EXPECT_THAT(registry.packages(), IsEmpty());
    return message;
}

struct Declaring : OxShader {
    static inline std::ptrdiff_t offset = 0;
    static inline int size = 0;
    float m_room[4] = {};

    void Register() override { oxsDeclareParameter("p", 2, offset, size); }
};

TEST(Packages, ParametersMustLieInTheirObjectAndBeOfASizeThatValuesHave) {
    const struct {
        std::ptrdiff_t offset;
        int size;
        const char* message;
    } cases[] = {
        {sizeof(OxShader), 16, "nothing failed"},
        {0, 8, "declared outside its object: bytes 0 to 8 of "},  // the virtual table's address
        {-8, 4, "declared outside its object: bytes -8 to -4 of "},
        {16, 1 << 20, "declared outside its object: bytes 16 to 1048592 of "},
        {16, 0, "declared with 0 bytes; expected 1 or a multiple of 4"},
        {16, 6, "declared with 6 bytes; expected 1 or a multiple of 4"},
        {8, 8, "declared over 'm_ro', which is the host's: bytes 8 to 16"},
    };
    for (const auto& c : cases) {
        Declaring::offset = c.offset;
        Declaring::size = c.size;
        Registry registry;
        const std::string message = badPackage([&] {
            registry.registerObject("X", "P", [] { return oxRegisterObject<Declaring>(&oxNewObject<Declaring>); });
        });
        EXPECT_THAT(message, HasSubstr(c.message));
        EXPECT_EQ(registry.find("X") != nullptr, message == "nothing failed");
    }
}

TEST(Packages, FaultsOfOneRegistrationDoNotReachTheNext) {
    Registry registry;
    badPackage([&] {
        registry.registerObject("Half", "P", [] {
            oxsDeclareParameter("left over", 2, 16, 4);
            oxsDefine_NewLoadableObject_Fct(&oxNewObject<Declaring>);
            return 0;
        });
    });
    EXPECT_EQ(badPackage([&] { registry.registerObject("X", "P", [] { return 1; }); }),
              "P: the registration of 'X' failed");
    const struct {
        const char* name;
        int (*registration)();
        const char* message;
    } cases[] = {
        {"X", []() -> int { throw 5; }, "P: the registration of 'X' failed"},
        {"X", []() -> int { throw std::runtime_error("no licence today"); },
         "P: the registration of 'X' failed: no licence today"},
        {"X", [] { return oxsDefine_NewLoadableObject_Fct([]() -> OxLoadableObject* { return nullptr; }); },
         "P: the factory of 'X' makes no object"},
        {"OxPointLight", [] { return oxsDefine_NewLoadableObject_Fct(&oxNewObject<OxShader>); },
         "P: object 'OxPointLight' is already registered by Oxbeam"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(badPackage([&] { registry.registerObject(c.name, "P", c.registration); }), c.message);
    registry.registerObject("Bare", "P", [] { return oxsDefine_NewLoadableObject_Fct(&oxNewObject<OxShader>); });
    EXPECT_THAT(registry.find("Bare")->parameters, IsEmpty());
}

TEST(Packages, RegisterOncePerLoadAndKeepTheirSymbolsToThemselves) {
    Registry registry;
    registry.loadPackage(folder / "libStranger.so");
    void* library = dlopen((folder / "libStranger.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_TRUE(library);
    const int& registrations = *static_cast<int*>(dlsym(library, "strangerRegistrations"));
    const int before = registrations;
    Registry second;
    second.loadPackage(folder / "libStranger.so");
    EXPECT_EQ(registrations, before + 1);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "Register_StrangerBare_LoadableObject"), nullptr);

    EXPECT_EQ(registry.find("StrangerPaint")->kind, ObjectKind::Surface);
    EXPECT_EQ(registry.find("StrangerBare")->kind, ObjectKind::Shader);
    EXPECT_EQ(registry.find("Stranger"), nullptr);
}

// Distributions strip what they ship, and some tools take the section headers with it.
TEST(Packages, LoadWithoutSymbolTableAndSectionHeaders) {
    std::string bytes = contentOf(folder / "libStranger.so");
    // e_shoff, and e_shnum with e_shstrndx, in the header of a 64-bit ELF file.
    std::fill_n(bytes.begin() + 40, 8, '\0');
    std::fill_n(bytes.begin() + 60, 4, '\0');
    Registry registry;
    registry.loadPackage(writeFile("libStripped.so", bytes));
    EXPECT_TRUE(registry.find("StrangerBare"));
    EXPECT_TRUE(registry.find("StrangerPaint"));
}

TEST(Packages, OfFilesWithTheSameNameTheFirstFolderWins) {
    const fs::path first = scratch() / "first", second = scratch() / "second";
    for (const fs::path& made : {first, second}) fs::create_directories(made);
    fs::copy_file(folder / "libStranger.so", first / "libStranger.so");
    for (const char* name : {"second/libStranger.so", "first/libNotes.txt", "first/Stranger.so"})
        writeFile(name, "not a library");
    Registry registry;
    registry.loadPackages({scratch() / "missing", first, second, first});
    EXPECT_THAT(registry.packages(), ElementsAre(first / "libStranger.so"));
    // The other one in the second folder is said to be left out; the same folder a second time is not.
    EXPECT_THAT(textsOf(registry.remarks()),
                ElementsAre(AllOf(HasSubstr("second/libStranger.so: note: is skipped: "), HasSubstr("first/lib"))));
}

// ---- Packages that are not to be trusted

// No code of theirs runs, and nothing waits for them or reads beyond their end.
TEST(Packages, FilesThatCannotBeLoadedAreNotTried) {
    const std::string good = contentOf(folder / "libStranger.so");
    std::string other = good;
    const auto asked = other.find("oxInterface_1");
    ASSERT_NE(asked, std::string::npos);
    other[asked + 12] = '7';
    EXPECT_EQ(failureOf(writeFile("libOther.so", other)),
              "libOther.so: this package does not load: it was built for version 7 of the interface, this host has "
              "version 1");
    EXPECT_THAT(failureOf(writeFile("libShort.so", good.substr(0, 9000))), HasSubstr("truncated"));
    mkfifo((scratch() / "libFifo.so").c_str(), 0600);
    EXPECT_EQ(failureOf(scratch() / "libFifo.so"), "libFifo.so: this package does not load: it is not a regular file");
    EXPECT_THAT(failureOf(scratch()), HasSubstr("it is not a regular file"));
    EXPECT_EQ(failureOf(folder / "libMissing.so"),
              "libMissing.so: this package does not load: No such file or directory");
    EXPECT_EQ(failureOf(writeFile("libText.so", std::string(500, 'x'))),
              "libText.so: this package does not load: it is no shared library");
    EXPECT_EQ(failureOf(folder / "libUnresolved.so"),
              "libUnresolved.so: this package does not load: libUnresolved.so: undefined symbol: "
              "_Z17nobodyDefinesThisv");
}

// Whatever stands in a file, reading its tables ends, and within it.
TEST(Packages, DamagedFilesAreReadToNoHarm) {
    const std::string good = contentOf(folder / "libNoFactory.so");
    std::mt19937 random(7);
    for (unsigned i = 0; i < 400; ++i) {
        std::string bad = good;
        const std::size_t head = i % 2 ? 1024 : bad.size();
        for (unsigned k = 0; k < 8; ++k) bad[random() % head] = static_cast<char>(random());
        if (i % 3 == 0) bad.resize(random() % bad.size());
        EXPECT_NE(readPackageFile(writeFile("libBad.so", bad)).fault, "");
    }
}

TEST(Packages, ABrokenOneHurtsNoOther) {
    const fs::path mixed = scratch() / "mixed";
    fs::create_directories(mixed);
    fs::copy_file(folder / "libStranger.so", mixed / "libStranger.so");
    fs::copy_file(folder / "libNullId.so", mixed / "libNullId.so");
    fs::copy_file(folder / "libNoXml.so", mixed / "libNoXml.so");
    fs::copy_file(folder / "libUnversioned.so", mixed / "libUnversioned.so");
    Registry registry;
    registry.loadPackages({mixed});
    EXPECT_TRUE(registry.find("StrangerBare"));
    ASSERT_EQ(registry.broken().size(), 1u);
    EXPECT_EQ(registry.brokenFor("NullId"), &registry.broken()[0]);
    EXPECT_EQ(registry.brokenFor("Nobody"), nullptr);  // all that it would offer is known
    EXPECT_THAT(
        textsOf(registry.remarks()),
        UnorderedElementsAre(HasSubstr("libNoXml.so: warning: the document of 'NoXml' is no XML: "),
                             HasSubstr("libNullId.so: warning: a parameter of 'NullId' is declared without an id"),
                             HasSubstr("libUnversioned.so: note: does not say which version of the interface")));

    writeFile("mixed/libUnknown.so", "no library");
    Registry second;
    second.loadPackages({mixed});
    EXPECT_TRUE(second.brokenFor("Nobody"));
}
