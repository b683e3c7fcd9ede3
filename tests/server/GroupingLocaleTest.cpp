// An application whose locale groups digits: what the pool of pipes writes as an address stays one.

#include <locale>
#include <sstream>

#include "cvtp/internal/DefaultConnectionManager.h"
#include "io/Exceptions.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Internal::Cvtp::DefaultConnectionManager;
using ::testing::Contains;
using ::testing::HasSubstr;

/// Puts a dot before each digit but the first.
struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\1"; }
};

class GroupingLocaleTest : public ServerTest {
 protected:
    ~GroupingLocaleTest() override { std::locale::global(before); }

    static std::string addressOf(const Io::CvPipe* pipe) {
        std::ostringstream text;
        text.imbue(std::locale::classic());
        text << static_cast<const void*>(pipe);
        return text.str();
    }

    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    RunningServer service{"pipe"};
    DefaultConnectionManager manager{10000, 10000};
};

TEST_F(GroupingLocaleTest, ThePipeThatCannotBeFoundIsNamedByItsPlainAddress) {
    Io::CvPipe stranger;
    const std::string text = "Can't find the pipe " + addressOf(&stranger) + "in the used or available pools.";
    const LogCapture log;
    try {
        manager.returnPipe(&stranger);
        ADD_FAILURE() << "a pipe of nobody was taken";
    } catch (const Io::IllegalStateException& e) {
        EXPECT_EQ(e.getMessage(), text);
    }
    EXPECT_EQ(log.texts(), Lines({"ERROR: " + text}));
}

TEST_F(GroupingLocaleTest, ThePipeThatIsRemovedIsNamedByItsPlainAddress) {
    service.start();
    const LogCapture log;
    Io::CvPipe* const pipe = manager.getPipe("pipe", "rw");
    const std::string address = addressOf(pipe);
    manager.removePipe(pipe);
    service.stop();
    EXPECT_THAT(log.texts(), Contains(HasSubstr("(" + address + ") from used pipe list")));
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
