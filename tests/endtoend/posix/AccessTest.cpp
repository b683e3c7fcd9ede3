// Who may open a pipe, seen from both sides: servers and clients are processes of several users, and whoever may
// exchanges a POST. Users need no names, so the numbers of nobody will do.

#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"
#include "cvtp/PostRequest.h"
#include "io/platform/posix/PipeSecurity.h"
#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Cvtp;

/// A user, his own group, and other groups that he is in.
struct User {
    const char* name;
    unsigned id;
    unsigned group;
    std::vector<std::string> others;

    bool become() const {
        std::vector<gid_t> numbers;
        for (const std::string& other : others) {
            const struct group* const entry = ::getgrnam(other.c_str());
            if (entry == nullptr) {
                return false;
            }
            numbers.push_back(entry->gr_gid);
        }
        return ::setgroups(numbers.size(), numbers.data()) == 0 && ::setgid(group) == 0 && ::setuid(id) == 0;
    }
};

const User ROOT = {"root", 0, 0, {}};
const User OWNER = {"the server's user", 1900000001, 1900000011, {}};
const User OWNER_IN_DAEMON = {"the server's user", 1900000001, 1900000011, {"daemon"}};
const User SAME_GROUP = {"a user of the server's group", 1900000002, 1900000011, {}};
const User IN_DAEMON = {"a user in daemon", 1900000003, 1900000013, {"bin", "daemon"}};
const User STRANGER = {"a stranger", 1900000004, 1900000014, {"bin"}};

std::string bodyOf(std::istream& stream) {
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

class Echo : public CvtpHandler {
 public:
    explicit Echo(Gate& ready) : ready(ready) {}
    bool doReady() override {
        ready.open();
        return true;
    }
    void doNotify(CvtpServerRequest&) override {}
    void doPost(CvtpServerRequest& request, CvtpServerResponse& response) override {
        const std::string body = bodyOf(*request.getBodyStream());
        response.setStatusCode(CvtpMessage::STATUS_OK);
        response.setBody(body.data(), body.size());
        response.send();
    }

 private:
    Gate& ready;
};

/// What the environment and the umask of a server are. Null leaves a variable out.
struct Settings {
    const char* permission;
    const char* group;
    mode_t umask;
};

int serve(const User& user, const Settings& settings, Gate& ready) {
    if (settings.permission != nullptr) {
        ::setenv("CV_PIPE_SET_GROUP_PERMISSION", settings.permission, 1);
    }
    if (settings.group != nullptr) {
        ::setenv("CV_PIPE_OWNER_GROUP", settings.group, 1);
    }
    ::umask(settings.umask);
    if (user.become()) {
        CvtpServer server("service", 1);
        Echo echo(ready);
        server.setHandler(&echo);
        server.run();
    }
    // Only when something has gone wrong; the tests would wait for it otherwise.
    ready.open();
    return 1;
}

enum Outcome { ANSWERED = 10, DENIED = 11, FAILED = 12 };

std::ostream& operator<<(std::ostream& out, Outcome outcome) {
    return out << (outcome == ANSWERED ? "answered" : outcome == DENIED ? "denied" : "failed");
}

/// Whether the transport says in its own words that there is no access.
bool isDenied() {
    try {
        Io::CvPipe pipe("service", true, true);
    } catch (Io::ConnectException& error) {
        return error.getMessage() == "Access denied.";
    }
    return false;
}

int post(const User& user) {
    if (!user.become()) {
        return FAILED;
    }
    const std::string text(100000, 'x');
    CvtpClient client;
    PostRequest request(&client, "service", "/");
    request.setBody(text.data(), text.size());
    try {
        const std::unique_ptr<CvtpResponse> response(request.execute());
        return bodyOf(*response->getBodyStream()) == text ? ANSWERED : FAILED;
    } catch (Io::CvPipeException& error) {
        return error.getMessage() == "Access denied." && isDenied() ? DENIED : FAILED;
    }
}

struct AccessCase {
    const char* name;
    User server;
    Settings settings;
    std::vector<User> answered;
    std::vector<User> denied;
};

std::ostream& operator<<(std::ostream& out, const AccessCase& item) {
    return out << item.name;
}

class UsersTest : public PipeTest, public ::testing::WithParamInterface<AccessCase> {};

TEST_P(UsersTest, WhoMayIsAnsweredAndWhoMayNotIsDenied) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become other users";
    }
    ASSERT_EQ(::chmod(folder.getPath().c_str(), 01777), 0);
    Gate ready;
    ChildProcess server([&] { return serve(GetParam().server, GetParam().settings, ready); });
    ready.pass();
    for (const User& user : GetParam().answered) {
        ChildProcess client([&] { return post(user); });
        EXPECT_EQ(static_cast<Outcome>(client.wait()), ANSWERED) << user.name;
    }
    for (const User& user : GetParam().denied) {
        ChildProcess client([&] { return post(user); });
        EXPECT_EQ(static_cast<Outcome>(client.wait()), DENIED) << user.name;
    }
}

INSTANTIATE_TEST_SUITE_P(
    AllSettings, UsersTest,
    ::testing::Values(
        AccessCase{
            "Default", OWNER_IN_DAEMON, {nullptr, nullptr, 022}, {OWNER, ROOT}, {SAME_GROUP, IN_DAEMON, STRANGER}},
        AccessCase{"DefaultWithAnUmaskForAll",
                   OWNER_IN_DAEMON,
                   {nullptr, nullptr, 0},
                   {OWNER, SAME_GROUP, IN_DAEMON, STRANGER, ROOT},
                   {}},
        AccessCase{
            "OneIsNotTrue", OWNER_IN_DAEMON, {"1", nullptr, 0}, {OWNER, SAME_GROUP, IN_DAEMON, STRANGER, ROOT}, {}},
        AccessCase{
            "OwnGroup", OWNER_IN_DAEMON, {"true", nullptr, 0}, {OWNER, SAME_GROUP, ROOT}, {IN_DAEMON, STRANGER}},
        AccessCase{"OwnGroupWithANarrowUmask",
                   OWNER,
                   {"TRUE", nullptr, 077},
                   {OWNER, SAME_GROUP, ROOT},
                   {IN_DAEMON, STRANGER}},
        AccessCase{"NamedGroup",
                   OWNER_IN_DAEMON,
                   {"true", "daemon", 077},
                   {OWNER, IN_DAEMON, ROOT},
                   {SAME_GROUP, STRANGER}},
        AccessCase{"NamedGroupOfAServerOfRoot",
                   ROOT,
                   {"true", "daemon", 022},
                   {ROOT, IN_DAEMON},
                   {OWNER, SAME_GROUP, STRANGER}},
        AccessCase{"NamedGroupWithoutAccess",
                   OWNER_IN_DAEMON,
                   {nullptr, "daemon", 0},
                   {OWNER, ROOT},
                   {IN_DAEMON, SAME_GROUP, STRANGER}},
        AccessCase{"MissingGroup",
                   OWNER_IN_DAEMON,
                   {"true", "no-such-group", 0},
                   {OWNER, ROOT},
                   {SAME_GROUP, IN_DAEMON, STRANGER}},
        // It cannot give the file to that group, so the default access it is: that of the umask.
        AccessCase{"NamedGroupThatTheServerIsNotIn",
                   OWNER,
                   {"true", "daemon", 0},
                   {OWNER, SAME_GROUP, IN_DAEMON, STRANGER, ROOT},
                   {}}),
    [](const auto& item) { return std::string(item.param.name); });

}  // namespace
}  // namespace Testing
}  // namespace Corvane
