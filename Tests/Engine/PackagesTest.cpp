// Loading packages, good ones and bad ones.
#include "Oxbeam/OxExport.h"
#include "Tests/Support/SceneText.h"

#include <dlfcn.h>

using namespace oxbeam::test;

static const fs::path folder = TEST_PACKAGES;

// The message with which something fails for a bad package.
template <class F>
static std::string badPackage(F&& act) {
    return withoutFolder(failure(ExitStatus::BadPackage, act), folder);
}

static std::string failureOf(const fs::path& package) {
    Registry registry;
    std::string message = badPackage([&] { registry.loadPackage(package); });
    EXPECT_THAT(registry.packages(), IsEmpty());
    return message;
}

TEST(Packages, BadOnesAreNamedWithTheirFault) {
    const struct {
        const char *package, *message;
    } cases[] = {
        {"libMissing.so",
         "this package does not load: libMissing.so: cannot open shared object file: "
         "No such file or directory"},
        {"libUnresolved.so", "this package does not load: libUnresolved.so: undefined symbol: _Z17nobodyDefinesThisv"},
        {"libNoObjects.so", "this library exports no Register_<Name>_LoadableObject; it is no package"},
        {"libNoFactory.so",
         "object 'Orphan' has no factory: Register_Orphan_LoadableObject is exported, "
         "NewOrphanLoadableObject is not"},
    };
    for (const auto& c : cases) EXPECT_EQ(failureOf(folder / c.package), std::string(c.package) + ": " + c.message);

    EXPECT_EQ(failureOf(writeFile("libText.so", std::string(500, 'x'))),
              "libText.so: this package does not load: libText.so: invalid ELF header");
    EXPECT_THAT(failureOf(scratch()), HasSubstr(": this package does not load: "));  // a directory
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
    EXPECT_THAT(badPackage([&] {
                    Registry().loadPackages({second, first});
                }),
                HasSubstr("second/libStranger.so: this package does not load: "));
}
