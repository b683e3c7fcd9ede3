#include "io/platform/windows/SecurityDescriptorBuilder.h"

#include <gmock/gmock.h>

#include <string>

#include "tests/io/windows/FakeSecurity.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io::Platform;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

const std::string OWNER = FakeSecurity::OWNER;
const std::string PRIMARY_GROUP = FakeSecurity::PRIMARY_GROUP;
const std::string READERS = FakeSecurity::READERS;

const AccessSettings WITH_PRIMARY_GROUP{true, ""};
const AccessSettings WITH_READERS{true, FakeSecurity::NAME_OF_READERS};
const AccessSettings READERS_WITHOUT_ACCESS{false, FakeSecurity::NAME_OF_READERS};

// GENERIC_READ and GENERIC_WRITE.
const std::string ALLOW = " allow 3221225472 ";
const std::string OWNER_ALONE = "owner none group none" + ALLOW + OWNER;

const std::string OWNER_VALID = "DEBUG: User owner SID is valid. ";
const std::string GROUP_VALID = "DEBUG: Default Process Primary Group SID is valid. ";
const std::string NO_OWNER = "ERROR: The Owner SID was not retrieved.";

/// The calls that read the owner, who is then #2.
const Lines OWNER_CALLS{"OpenProcessToken(process, 8)",
                        "GetTokenInformation(token, 4, null, 0)",
                        "LocalAlloc(64, 36) = #1",
                        "GetTokenInformation(token, 4, #1, 36)",
                        "CloseHandle(token)",
                        "LocalAlloc(64, 28) = #2",
                        "CopySid(28, #2, " + OWNER + ")",
                        "IsValidSid(#2)",
                        "LocalFree(#1)"};

/// Read and write, set, not inherited; no multiple trustee, given by its SID; a user or a group.
const std::string OWNER_ENTRY = "{3221225472 2 0, trustee null 0 0 1 #2}";
const std::string GROUP_ENTRY = "{3221225472 2 0, trustee null 0 0 2 #4}";

/// The calls that follow when owner and group are known. @param list and the two after it: "#5" and so on, and
/// "null" for no group.
Lines descriptorCalls(const std::string& entries, const std::string& list, const std::string& descriptor,
                      const std::string& group) {
    return {"SetEntriesInAclA(" + entries + ", null) = " + list, "LocalAlloc(64, 40) = " + descriptor,
            "InitializeSecurityDescriptor(" + descriptor + ", 1)",
            "SetSecurityDescriptorDacl(" + descriptor + ", 1, " + list + ", 0)",
            "SetSecurityDescriptorGroup(" + descriptor + ", " + group + ", 0)"};
}

Lines operator+(Lines lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

const Lines LOOK_UP_CALLS{
    "LookupAccountNameA(Readers, null, 0, null, 0)",
    "LocalAlloc(64, 28) = #3",
    // One byte more than the system asks for.
    "LocalAlloc(64, 8) = #4",
    "LookupAccountNameA(Readers, #3, 28, #4, 7)",
    "IsValidSid(#3)",
    "LocalFree(#4)",
};

TEST(SecurityDescriptorBuilderTest, ReadsThePrimaryGroupWithExactlyTheseCalls) {
    FakeSecurity security;
    LogCapture log;
    const PSECURITY_DESCRIPTOR descriptor = buildSecurityDescriptor(WITH_PRIMARY_GROUP);
    const Lines groupCalls{"OpenProcessToken(process, 8)",
                           "GetTokenInformation(token, 5, null, 0)",
                           "LocalAlloc(64, 36) = #3",
                           "GetTokenInformation(token, 5, #3, 36)",
                           "CloseHandle(token)",
                           "LocalAlloc(64, 28) = #4",
                           "CopySid(28, #4, " + PRIMARY_GROUP + ")",
                           "IsValidSid(#4)",
                           "LocalFree(#3)"};
    EXPECT_EQ(security.made, OWNER_CALLS + groupCalls +
                                 descriptorCalls("2, " + OWNER_ENTRY + ", " + GROUP_ENTRY, "#5", "#6", "#4"));
    EXPECT_EQ(log.texts(), (Lines{OWNER_VALID, GROUP_VALID}));
    EXPECT_EQ(descriptorText(descriptor),
              "owner none group " + PRIMARY_GROUP + ALLOW + OWNER + ALLOW + PRIMARY_GROUP);
}

TEST(SecurityDescriptorBuilderTest, LooksUpANamedGroupWithExactlyTheseCalls) {
    FakeSecurity security;
    LogCapture log;
    const PSECURITY_DESCRIPTOR descriptor = buildSecurityDescriptor(WITH_READERS);
    const std::string entry = "{3221225472 2 0, trustee null 0 0 2 #3}";
    EXPECT_EQ(security.made,
              OWNER_CALLS + LOOK_UP_CALLS + descriptorCalls("2, " + OWNER_ENTRY + ", " + entry, "#5", "#6", "#3"));
    EXPECT_EQ(log.texts(), (Lines{OWNER_VALID}));
    EXPECT_EQ(descriptorText(descriptor), "owner none group " + READERS + ALLOW + OWNER + ALLOW + READERS);
}

TEST(SecurityDescriptorBuilderTest, ANamedGroupWithoutAccessIsStillTheGroupOfTheDescriptor) {
    FakeSecurity security;
    LogCapture log;
    const PSECURITY_DESCRIPTOR descriptor = buildSecurityDescriptor(READERS_WITHOUT_ACCESS);
    EXPECT_EQ(security.made, OWNER_CALLS + LOOK_UP_CALLS + descriptorCalls("1, " + OWNER_ENTRY, "#5", "#6", "#3"));
    EXPECT_EQ(log.texts(), (Lines{OWNER_VALID}));
    EXPECT_EQ(descriptorText(descriptor), "owner none group " + READERS + ALLOW + OWNER);
}

TEST(SecurityDescriptorBuilderTest, NoGroupIsReadWhenNoneIsAskedFor) {
    FakeSecurity security;
    const PSECURITY_DESCRIPTOR descriptor = buildSecurityDescriptor({false, ""});
    EXPECT_EQ(security.made, OWNER_CALLS + descriptorCalls("1, " + OWNER_ENTRY, "#3", "#4", "null"));
    EXPECT_EQ(descriptorText(descriptor), OWNER_ALONE);
}

TEST(SecurityDescriptorBuilderTest, AGroupThatDoesNotExistIsLeftOut) {
    for (const bool hasAccess : {false, true}) {
        FakeSecurity security;
        LogCapture log;
        const PSECURITY_DESCRIPTOR descriptor = buildSecurityDescriptor({hasAccess, "Nobody"});
        EXPECT_EQ(security.made, OWNER_CALLS + Lines{"LookupAccountNameA(Nobody, null, 0, null, 0)"} +
                                     descriptorCalls("1, " + OWNER_ENTRY, "#3", "#4", "null"));
        EXPECT_EQ(log.texts(), (Lines{OWNER_VALID,
                                      "ERROR: LookupAccountName to get buffer size failed. GetLastError "
                                      "returned:: 1332"}));
        EXPECT_EQ(descriptorText(descriptor), OWNER_ALONE);
    }
}

TEST(SecurityDescriptorBuilderTest, WhatADescriptorIsMadeOfStaysAllocated) {
    FakeSecurity security;
    // The owner's SID too, although nothing refers to it any more; deliberate.
    buildSecurityDescriptor(WITH_PRIMARY_GROUP);
    EXPECT_EQ(security.memory(), (Lines{"#2", "#4", "#5", "#6"}));
    EXPECT_EQ(security.openTokens, 0);
}

TEST(SecurityDescriptorBuilderTest, EverythingIsReleasedByTheCallForItsKind) {
    FakeSecurity security;
    security.fail("SetSecurityDescriptorGroup", 1, 4711);
    EXPECT_EQ(buildSecurityDescriptor(WITH_PRIMARY_GROUP), nullptr);
    // FreeSid is for SIDs of another origin; deliberate.
    EXPECT_THAT(security.made, IsSupersetOf({"FreeSid(#2)", "FreeSid(#4)", "LocalFree(#5)", "LocalFree(#6)"}));
    EXPECT_THAT(security.memory(), IsEmpty());
}

struct FailureCase {
    const char* name;
    AccessSettings settings;
    /// Which call fails, at which time, always with the code 4711.
    const char* call;
    int time;
    /// The whole log.
    Lines lines;
    /// The descriptor, and the number of allocations that it keeps.
    std::string result;
    std::size_t kept;
};

class SecurityFailureTest : public ::testing::TestWithParam<FailureCase> {};

TEST_P(SecurityFailureTest, IsLoggedAndLeavesNothingBehind) {
    const FailureCase& param = GetParam();
    FakeSecurity security;
    security.fail(param.call, param.time, 4711);
    LogCapture log;
    const PSECURITY_DESCRIPTOR descriptor = buildSecurityDescriptor(param.settings);
    EXPECT_EQ(log.texts(), param.lines);
    EXPECT_EQ(descriptorText(descriptor), param.result);
    EXPECT_EQ(security.memory().size(), param.kept) << ::testing::PrintToString(security.made);
    EXPECT_EQ(security.openTokens, 0);
}

const AccessSettings& PRIMARY = WITH_PRIMARY_GROUP;
const AccessSettings& NAMED = WITH_READERS;

std::string nameOf(const ::testing::TestParamInfo<FailureCase>& item) {
    return item.param.name;
}

FailureCase ownerCase(const char* name, const char* call, int time, const std::string& text) {
    return {name, PRIMARY, call, time, {"ERROR: " + text + "4711", NO_OWNER}, "default", 0};
}

INSTANTIATE_TEST_SUITE_P(
    Owner, SecurityFailureTest,
    ::testing::Values(
        ownerCase("OpenProcessToken", "OpenProcessToken", 1, "OpenProcessToken failed. GetLastError returned: "),
        ownerCase("Size", "GetTokenInformation", 1, "GetTokenInformation to get buffer size. Error: "),
        ownerCase("Memory", "LocalAlloc", 1, "LocalAlloc failed for pUserInfo: "),
        ownerCase("Information", "GetTokenInformation", 2,
                  "GetTokenInformation to get user who will become the owner of any objects - Error: "),
        ownerCase("MemoryForSid", "LocalAlloc", 2, "LocalAlloc failed for user owner SID: "),
        ownerCase("Copy", "CopySid", 1, "Copy failed for user owner SID: "),
        // Not valid: kept, and without a line.
        FailureCase{"NotValid",
                    PRIMARY,
                    "IsValidSid",
                    1,
                    {GROUP_VALID},
                    "owner none group " + PRIMARY_GROUP + ALLOW + OWNER + ALLOW + PRIMARY_GROUP,
                    4}),
    nameOf);

/// The group is left out, and the rest is as if there was none.
FailureCase groupCase(const char* name, const AccessSettings& settings, const char* call, int time,
                      const std::string& text) {
    return {name, settings, call, time, {OWNER_VALID, "ERROR: " + text + "4711"}, OWNER_ALONE, 3};
}

INSTANTIATE_TEST_SUITE_P(
    PrimaryGroup, SecurityFailureTest,
    ::testing::Values(
        groupCase("OpenProcessToken", PRIMARY, "OpenProcessToken", 2,
                  "OpenProcessToken failed. GetLastError returned: "),
        groupCase("Size", PRIMARY, "GetTokenInformation", 3, "GetTokenInformation to get buffer size. Error: "),
        groupCase("Memory", PRIMARY, "LocalAlloc", 3, "LocalAlloc failed for pPriamryGroupInfo: "),
        groupCase("Information", PRIMARY, "GetTokenInformation", 4,
                  "GetTokenInformation to get primary group information - Error: "),
        groupCase("MemoryForSid", PRIMARY, "LocalAlloc", 4, "LocalAlloc failed for primary group SID: "),
        groupCase("Copy", PRIMARY, "CopySid", 2, "Copy failed for primary group SID: "),
        FailureCase{"NotValid",
                    PRIMARY,
                    "IsValidSid",
                    2,
                    {OWNER_VALID},
                    "owner none group " + PRIMARY_GROUP + ALLOW + OWNER + ALLOW + PRIMARY_GROUP,
                    4}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    NamedGroup, SecurityFailureTest,
    ::testing::Values(groupCase("Size", NAMED, "LookupAccountNameA", 1,
                                "LookupAccountName to get buffer size failed. GetLastError returned:: "),
                      groupCase("MemoryForSid", NAMED, "LocalAlloc", 3, "LocalAlloc failed for groupSID: "),
                      groupCase("MemoryForDomain", NAMED, "LocalAlloc", 4, "LocalAlloc failed for domain: "),
                      groupCase("Sid", NAMED, "LookupAccountNameA", 2,
                                "LookupAccountName to get group SID - Error: "),
                      groupCase("SidWithoutAccess", READERS_WITHOUT_ACCESS, "LookupAccountNameA", 2,
                                "LookupAccountName to get group SID - Error: "),
                      // Not valid: kept, with a line.
                      FailureCase{"NotValid",
                                  NAMED,
                                  "IsValidSid",
                                  2,
                                  {OWNER_VALID, "DEBUG: The SID for: 'Readers' is invalid."},
                                  "owner none group " + READERS + ALLOW + OWNER + ALLOW + READERS,
                                  4}),
    nameOf);

FailureCase descriptorCase(const char* name, const AccessSettings& settings, const char* call, int time,
                           const std::string& text) {
    Lines lines{OWNER_VALID, "ERROR: " + text + "4711"};
    if (settings.group.empty()) {
        lines.insert(lines.begin() + 1, GROUP_VALID);
    }
    return {name, settings, call, time, lines, "default", 0};
}

const char* const LIST_TEXT = "SetEntriesInAcl Error: ";
const char* const MEMORY_TEXT = "LocalAlloc Security descriptor. Error: ";
const char* const INITIALIZE_TEXT = "Initialize a security descriptor. Error: ";
const char* const DACL_TEXT = "SetSecurityDescriptorDacl Error: ";
const char* const GROUP_TEXT = "SetSecurityDescriptorGroup Error: ";

INSTANTIATE_TEST_SUITE_P(
    Descriptor, SecurityFailureTest,
    ::testing::Values(descriptorCase("List", PRIMARY, "SetEntriesInAclA", 1, LIST_TEXT),
                      descriptorCase("ListNamed", NAMED, "SetEntriesInAclA", 1, LIST_TEXT),
                      descriptorCase("Memory", PRIMARY, "LocalAlloc", 5, MEMORY_TEXT),
                      descriptorCase("MemoryNamed", NAMED, "LocalAlloc", 5, MEMORY_TEXT),
                      descriptorCase("Initialize", PRIMARY, "InitializeSecurityDescriptor", 1, INITIALIZE_TEXT),
                      descriptorCase("InitializeNamed", NAMED, "InitializeSecurityDescriptor", 1, INITIALIZE_TEXT),
                      descriptorCase("Dacl", PRIMARY, "SetSecurityDescriptorDacl", 1, DACL_TEXT),
                      descriptorCase("DaclNamed", NAMED, "SetSecurityDescriptorDacl", 1, DACL_TEXT),
                      descriptorCase("Group", PRIMARY, "SetSecurityDescriptorGroup", 1, GROUP_TEXT),
                      descriptorCase("GroupNamed", NAMED, "SetSecurityDescriptorGroup", 1, GROUP_TEXT),
                      descriptorCase("GroupWithoutAccess", READERS_WITHOUT_ACCESS, "SetSecurityDescriptorGroup", 1,
                                     GROUP_TEXT)),
    nameOf);

}  // namespace
}  // namespace Testing
}  // namespace Corvane
