#include "io/platform/windows/PipeSecurity.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/io/windows/AccessVariables.h"
#include "tests/io/windows/FakeSecurity.h"
#include "tests/io/windows/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using namespace Io::Platform;
using ::testing::IsEmpty;

const std::string CREATE = "DEBUG: Create SecurityDescriptor.";
const std::string OWNER_VALID = "DEBUG: User owner SID is valid. ";
const std::string GROUP_VALID = "DEBUG: Default Process Primary Group SID is valid. ";
const std::string UNKNOWN_GROUP =
    "ERROR: LookupAccountName to get buffer size failed. GetLastError returned:: 1332";
const std::string ALLOW = " allow 3221225472 ";

/// What this process is to the system, asked for in the test's own way.
template <class Information>
Information* readToken(TOKEN_INFORMATION_CLASS what, std::vector<char>& buffer) {
    HANDLE token = nullptr;
    EXPECT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
    buffer.resize(1000);
    DWORD size = 0;
    EXPECT_TRUE(::GetTokenInformation(token, what, buffer.data(), static_cast<DWORD>(buffer.size()), &size));
    ::CloseHandle(token);
    return reinterpret_cast<Information*>(buffer.data());
}

std::string ownOwner() {
    std::vector<char> buffer;
    return sidText(readToken<TOKEN_OWNER>(TokenOwner, buffer)->Owner);
}

std::string ownPrimaryGroup() {
    std::vector<char> buffer;
    return sidText(readToken<TOKEN_PRIMARY_GROUP>(TokenPrimaryGroup, buffer)->PrimaryGroup);
}

/// A group that each system has. Its name differs with the language of the system.
const char* const GUESTS = "S-1-5-32-546";

std::string nameOf(const std::string& sidAsText) {
    const OwnSid sid(sidAsText);
    char name[256] = "";
    char domain[256] = "";
    DWORD nameSize = sizeof name;
    DWORD domainSize = sizeof domain;
    SID_NAME_USE use = SidTypeUnknown;
    EXPECT_TRUE(::LookupAccountSidA(nullptr, sid.get(), name, &nameSize, domain, &domainSize, &use));
    return name;
}

std::string currentDescriptor() {
    return descriptorText(pipeSecurityAttributes().lpSecurityDescriptor);
}

TEST(PipeSecurityTest, WithoutVariablesTheSystemDecidesAndNothingIsLogged) {
    const AccessVariables variables(nullptr, nullptr);
    FakeSecurity security;
    LogCapture log;
    const SECURITY_ATTRIBUTES attributes = pipeSecurityAttributes();
    EXPECT_EQ(attributes.nLength, 24u);
    EXPECT_EQ(attributes.lpSecurityDescriptor, nullptr);
    EXPECT_EQ(attributes.bInheritHandle, FALSE);
    EXPECT_THAT(security.made, IsEmpty());
    EXPECT_THAT(log.texts(), IsEmpty());
}

struct SettingCase {
    const char* permission;
    bool isTrue;
};

TEST(PipeSecurityTest, OnlyTheWordTrueInAnyCaseGivesAGroupAccess) {
    const std::string without = "default";
    const std::string with = std::string("owner none group ") + FakeSecurity::PRIMARY_GROUP + ALLOW +
                             FakeSecurity::OWNER + ALLOW + FakeSecurity::PRIMARY_GROUP;
    const SettingCase cases[] = {{"true", true},  {"TRUE", true},   {"tRuE", true},   {"1", false},
                                 {"", false},     {"0", false},     {"false", false}, {"yes", false},
                                 {"tru", false},  {"truer", false}, {"t", false},     {"TRUE TRUE", false},
                                 {nullptr, false}};
    for (const SettingCase& setting : cases) {
        const AccessVariables variables(setting.permission, nullptr);
        FakeSecurity security;
        LogCapture log;
        EXPECT_EQ(currentDescriptor(), setting.isTrue ? with : without)
            << (setting.permission == nullptr ? "null" : setting.permission);
        EXPECT_EQ(log.texts(), setting.isTrue ? (Lines{CREATE, OWNER_VALID, GROUP_VALID}) : Lines());
    }
}

TEST(PipeSecurityTest, AnEmptyGroupIsNone) {
    const AccessVariables variables(nullptr, "");
    LogCapture log;
    EXPECT_EQ(currentDescriptor(), "default");
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(PipeSecurityTest, ALongNameOfAGroupIsLookedUpWhole) {
    const std::string name(5000, 'g');
    const AccessVariables variables("true", name.c_str());
    FakeSecurity security;
    pipeSecurityAttributes();
    EXPECT_THAT(security.made, ::testing::Contains("LookupAccountNameA(" + name + ", null, 0, null, 0)"));
}

TEST(PipeSecurityTest, OneDescriptorServesAllInstancesWhateverBecomesOfTheVariables) {
    const AccessVariables variables("true", nullptr);
    FakeSecurity security;
    LogCapture log;
    SECURITY_ATTRIBUTES first = pipeSecurityAttributes();
    void* const descriptor = first.lpSecurityDescriptor;
    ASSERT_NE(descriptor, nullptr);
    const Lines calls = security.made;
    const Lines texts = log.texts();
    first.nLength = 0;
    first.lpSecurityDescriptor = nullptr;
    first.bInheritHandle = TRUE;
    for (const char* const permission : {"true", "false", static_cast<const char*>(nullptr)}) {
        for (const char* const group : {"Readers", "Nobody", static_cast<const char*>(nullptr)}) {
            AccessVariables::set(permission, group);
            const SECURITY_ATTRIBUTES next = pipeSecurityAttributes();
            EXPECT_EQ(next.nLength, 24u);
            EXPECT_EQ(next.lpSecurityDescriptor, descriptor);
            EXPECT_EQ(next.bInheritHandle, FALSE);
        }
    }
    EXPECT_EQ(security.made, calls);
    EXPECT_EQ(log.texts(), texts);
}

TEST(PipeSecurityTest, WhileNoneCouldBeBuiltEachInstanceTriesAgainWithTheVariablesOfThatMoment) {
    const AccessVariables variables("true", nullptr);
    FakeSecurity security;
    security.fail("OpenProcessToken", 1, 5);
    security.fail("SetSecurityDescriptorDacl", 1, 1338);
    LogCapture log;
    EXPECT_EQ(currentDescriptor(), "default");
    AccessVariables::set("false", nullptr);
    EXPECT_EQ(currentDescriptor(), "default");
    AccessVariables::set("false", "Readers");
    EXPECT_EQ(currentDescriptor(), "default");
    EXPECT_THAT(security.memory(), IsEmpty());
    EXPECT_EQ(currentDescriptor(),
              std::string("owner none group ") + FakeSecurity::READERS + ALLOW + FakeSecurity::OWNER);
    EXPECT_EQ(log.texts(), (Lines{CREATE, "ERROR: OpenProcessToken failed. GetLastError returned: 5",
                                  "ERROR: The Owner SID was not retrieved.", CREATE, OWNER_VALID,
                                  "ERROR: SetSecurityDescriptorDacl Error: 1338", CREATE, OWNER_VALID}));
}

TEST(PipeSecurityTest, ThreadsThatComeTogetherBuildOneDescriptor) {
    for (int round = 0; round < 20; ++round) {
        const AccessVariables variables("true", nullptr);
        LogCapture log;
        std::vector<void*> seen(8);
        std::vector<std::thread> threads;
        for (void*& descriptor : seen) {
            threads.emplace_back([&descriptor] { descriptor = pipeSecurityAttributes().lpSecurityDescriptor; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(std::set<void*>(seen.begin(), seen.end()).size(), 1u);
        EXPECT_EQ(log.texts(), (Lines{CREATE, OWNER_VALID, GROUP_VALID}));
    }
}

std::string creation(const std::string& openMode, void* descriptor) {
    return "CreateNamedPipeA(\\\\.\\pipe\\pipe, " + openMode + ", 0, 255, 65536, 65536, 0, {24 " +
           std::to_string(reinterpret_cast<std::intptr_t>(descriptor)) + " 0})";
}

TEST(PipeSecurityTest, EachInstanceIsCreatedWithTheDescriptor) {
    const AccessVariables variables("true", nullptr);
    FakeSystem system;
    LogCapture log;
    ServerCvPipe server("pipe", true, true);
    CvPipe accepted;
    server.accept(accepted);
    void* const descriptor = pipeSecurityAttributes().lpSecurityDescriptor;
    ASSERT_NE(descriptor, nullptr);
    EXPECT_EQ(system.madeOf("CreateNamedPipeA"),
              (Lines{creation("1074266115", descriptor), creation("1073741827", descriptor)}));
    EXPECT_EQ(log.count(CREATE), 1);
    EXPECT_EQ(log.texts().front(), CREATE) << "the descriptor comes before the instance";
}

TEST(PipeSecurityTest, APipeIsCreatedAlsoWhenNoDescriptorCanBeBuilt) {
    const AccessVariables variables("true", nullptr);
    FakeSecurity security;
    security.fail("OpenProcessToken", 1, 5);
    FakeSystem system;
    LogCapture log;
    ServerCvPipe server("pipe", true, true);
    EXPECT_TRUE(server.isBound());
    EXPECT_EQ(system.madeOf("CreateNamedPipeA"), (Lines{"CreateNamedPipeA(\\\\.\\pipe\\pipe, 1074266115, 0, 255, "
                                                        "65536, 65536, 0, {24 null 0})"}));
    EXPECT_EQ(log.texts(),
              (Lines{CREATE, "ERROR: OpenProcessToken failed. GetLastError returned: 5",
                     "ERROR: The Owner SID was not retrieved.", "DEBUG: bindPipe: handle=1000 event=1001"}));
}

// From here on nothing is put in the place of the system.

struct SystemCase {
    const char* permission;
    std::string group;
    std::string descriptor;
    Lines lines;
};

std::vector<SystemCase> systemCases() {
    const std::string primary = ownPrimaryGroup();
    const std::string guests = nameOf(GUESTS);
    const std::string missing = "no such group here";
    const std::string user = ALLOW + ownOwner();
    const std::string none = "owner none group none" + user;
    const std::string owned = std::string("owner none group ") + GUESTS + user;
    const Lines found{CREATE, OWNER_VALID};
    const Lines notFound{CREATE, OWNER_VALID, UNKNOWN_GROUP};
    return {
        {nullptr, "", "default", {}},
        {"false", "", "default", {}},
        {"1", "", "default", {}},
        {"TRUE", "", "owner none group " + primary + user + ALLOW + primary, {CREATE, OWNER_VALID, GROUP_VALID}},
        {nullptr, guests, owned, found},
        {"false", guests, owned, found},
        {"1", guests, owned, found},
        {"TRUE", guests, owned + ALLOW + GUESTS, found},
        {nullptr, missing, none, notFound},
        {"false", missing, none, notFound},
        {"1", missing, none, notFound},
        {"TRUE", missing, none, notFound}};
}

TEST(PipeSecurityTest, TheSystemsOwnCallsGiveTheDescriptorThatIsAskedFor) {
    for (const SystemCase& one : systemCases()) {
        const AccessVariables variables(one.permission, one.group.c_str());
        LogCapture log;
        const std::string setting =
            std::string(one.permission == nullptr ? "null" : one.permission) + " '" + one.group + "'";
        EXPECT_EQ(currentDescriptor(), one.descriptor) << setting;
        EXPECT_EQ(log.texts(), one.lines) << setting;
    }
}

class PipeSecurityOfAPipeTest : public PipeTest {};

/// Puts what generic rights mean for a file in their place, as some systems have done already when they tell.
void mapGenericRights(PSECURITY_DESCRIPTOR descriptor) {
    GENERIC_MAPPING mapping = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
    PACL list = nullptr;
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    ASSERT_TRUE(::GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted) && list != nullptr);
    void* entry = nullptr;
    for (DWORD i = 0; ::GetAce(list, i, &entry); ++i) {
        ::MapGenericMask(&static_cast<ACCESS_ALLOWED_ACE*>(entry)->Mask, &mapping);
    }
}

/// Asks the system who may use the pipe.
std::string descriptorOfPipe(const std::string& path) {
    const HANDLE client = ::CreateFileA(PipeNames::ownPath(path).c_str(), READ_CONTROL | GENERIC_READ, 0, nullptr,
                                        OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(client, INVALID_HANDLE_VALUE) << GetLastError();
    std::vector<char> buffer(1000);
    DWORD size = 0;
    EXPECT_TRUE(::GetKernelObjectSecurity(client, GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                                          buffer.data(), static_cast<DWORD>(buffer.size()), &size))
        << GetLastError();
    ::CloseHandle(client);
    mapGenericRights(buffer.data());
    return descriptorText(buffer.data());
}

TEST_F(PipeSecurityOfAPipeTest, HoldsForThePipeItself) {
    const std::string allow = " allow " + std::to_string(FILE_GENERIC_READ | FILE_GENERIC_WRITE) + " ";
    const AccessVariables variables("true", nameOf(GUESTS).c_str());
    const ServerCvPipe server("pipe", true, true);
    EXPECT_EQ(descriptorOfPipe("\\\\.\\pipe\\pipe"),
              std::string("owner none group ") + GUESTS + allow + ownOwner() + allow + GUESTS);
}

TEST_F(PipeSecurityOfAPipeTest, LetsTheOwnUserExchangeData) {
    for (const char* const permission : {"true", "false"}) {
        const AccessVariables variables(permission, nameOf(GUESTS).c_str());
        Connection connection;
        writeText(connection.client, "question");
        EXPECT_EQ(readSome(connection.accepted), "question");
        writeText(connection.accepted, "answer");
        EXPECT_EQ(readSome(connection.client), "answer");
    }
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
