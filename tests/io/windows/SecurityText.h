#pragma once

#include <gtest/gtest.h>

#include <string>

#include "io/platform/windows/SecurityCalls.h"
// Needs the header above.
#include <sddl.h>

// What the system's security holds, as text.
namespace Corvane {
namespace Testing {

/// "S-1-5-32-545".
inline std::string sidText(PSID sid) {
    char* text = nullptr;
    if (!::ConvertSidToStringSidA(sid, &text)) {
        return "not a SID";
    }
    const std::string result = text;
    ::LocalFree(text);
    return result;
}

/// The identifier that a text means.
class OwnSid {
 public:
    explicit OwnSid(const std::string& text) { EXPECT_TRUE(::ConvertStringSidToSidA(text.c_str(), &sid)) << text; }
    ~OwnSid() { ::LocalFree(sid); }
    OwnSid(const OwnSid&) = delete;
    OwnSid& operator=(const OwnSid&) = delete;

    PSID get() const { return sid; }
    DWORD length() const { return ::GetLengthSid(sid); }

 private:
    PSID sid = nullptr;
};

/// An entry that allows, as " allow <mask> <trustee>"; one of another type or with flags shows these.
inline std::string aceText(PACL list, DWORD index) {
    void* entry = nullptr;
    if (!::GetAce(list, index, &entry)) {
        return " none";
    }
    auto* const ace = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    const std::string kind = ace->Header.AceType == ACCESS_ALLOWED_ACE_TYPE && ace->Header.AceFlags == 0
                                 ? " allow "
                                 : " type " + std::to_string(ace->Header.AceType) + " flags " +
                                       std::to_string(ace->Header.AceFlags) + " ";
    return kind + std::to_string(ace->Mask) + " " + sidText(&ace->SidStart);
}

/// Owner, group and each entry of a descriptor, as "owner none group S-1-5-32-545 allow 3221225472 S-1-5-32-545".
inline std::string descriptorText(PSECURITY_DESCRIPTOR descriptor) {
    if (descriptor == nullptr) {
        return "default";
    }
    EXPECT_TRUE(::IsValidSecurityDescriptor(descriptor));
    PSID owner = nullptr;
    PSID group = nullptr;
    PACL list = nullptr;
    BOOL present = FALSE;
    BOOL defaulted = TRUE;
    EXPECT_TRUE(::GetSecurityDescriptorOwner(descriptor, &owner, &defaulted));
    std::string text = "owner " + (owner == nullptr ? "none" : sidText(owner));
    EXPECT_TRUE(::GetSecurityDescriptorGroup(descriptor, &group, &defaulted));
    EXPECT_FALSE(defaulted);
    text += " group " + (group == nullptr ? "none" : sidText(group));
    EXPECT_TRUE(::GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted));
    EXPECT_FALSE(defaulted);
    if (!present || list == nullptr) {
        return text + " no list";
    }
    for (DWORD i = 0; i < list->AceCount; ++i) {
        text += aceText(list, i);
    }
    return text;
}

}  // namespace Testing
}  // namespace Corvane
