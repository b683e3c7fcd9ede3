#include "tools/cvtp/platform/PipeList.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/cvtp/platform/windows/PipeListCalls.h"

namespace Corvane {
namespace Tools {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Stands in the place of the system while it lives: with the pipes that the test asks for.
class PipeListTest : public ::testing::Test {
 protected:
    PipeListTest() {
        instance = this;
        calls.findFirstFile = findFirst;
        calls.findNextFile = findNext;
        calls.findClose = close;
        calls.userOfPipe = userOf;
    }
    ~PipeListTest() override { instance = nullptr; }

    /// The pipes of the list, each as "name of user".
    std::vector<std::string> list(bool mayConnect) {
        std::vector<std::string> result;
        for (const ListedPipe& pipe : listPipes(mayConnect, calls)) {
            EXPECT_EQ(pipe.server, ListedPipe::Server::LIVES);
            result.push_back(pipe.name + " of " + pipe.user);
        }
        return result;
    }
    std::string failure() {
        try {
            listPipes(false, calls);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "none";
    }

    std::vector<std::string> names;
    /// What the search ends with after the last name.
    DWORD end = ERROR_NO_MORE_FILES;
    int opened = 0;
    int closed = 0;
    std::vector<std::string> asked;

 private:
    static inline PipeListTest* instance = nullptr;
    static inline int place = 0;

    BOOL next(WIN32_FIND_DATAA& entry) {
        if (given == names.size()) {
            ::SetLastError(end);
            return FALSE;
        }
        const std::string& name = names[given++];
        std::copy(name.c_str(), name.c_str() + name.size() + 1, entry.cFileName);
        return TRUE;
    }
    static HANDLE WINAPI findFirst(LPCSTR pattern, LPWIN32_FIND_DATAA entry) {
        EXPECT_STREQ(pattern, "\\\\.\\pipe\\*");
        if (!instance->next(*entry)) {
            return INVALID_HANDLE_VALUE;
        }
        ++instance->opened;
        return &place;
    }
    static BOOL WINAPI findNext(HANDLE find, LPWIN32_FIND_DATAA entry) {
        EXPECT_EQ(find, &place);
        EXPECT_EQ(instance->closed, 0);
        return instance->next(*entry);
    }
    static BOOL WINAPI close(HANDLE find) {
        EXPECT_EQ(find, &place);
        ++instance->closed;
        return TRUE;
    }
    static std::string userOf(const std::string& path) {
        instance->asked.push_back(path);
        return "user " + std::to_string(instance->asked.size());
    }

    PipeListCalls calls;
    std::size_t given = 0;
};

TEST_F(PipeListTest, ShowsPipesByTheirNamesInOrderAndConnectsToNone) {
    const std::string longName(256, 'n');
    names = {"second", longName, "Other\\name", " a b ", "a"};
    EXPECT_THAT(list(false), ElementsAre(" a b  of ", "Other\\name of ", "a of ", longName + " of ", "second of "));
    EXPECT_THAT(asked, IsEmpty());
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(closed, 1);
}

TEST_F(PipeListTest, AsksEachPipeForItsUserWhenItMayConnect) {
    names = {"b", "a"};
    EXPECT_THAT(list(true), ElementsAre("a of user 2", "b of user 1"));
    EXPECT_THAT(asked, ElementsAre("\\\\.\\pipe\\b", "\\\\.\\pipe\\a"));
}

TEST_F(PipeListTest, WithoutPipesItIsEmpty) {
    end = ERROR_FILE_NOT_FOUND;
    EXPECT_THAT(list(true), IsEmpty());
    EXPECT_EQ(closed, 0);
}

TEST_F(PipeListTest, ASearchThatCannotBeginIsAFailure) {
    end = ERROR_ACCESS_DENIED;
    EXPECT_EQ(failure(), "the pipes cannot be listed, error 5");
    EXPECT_EQ(closed, 0);
}

TEST_F(PipeListTest, ASearchThatBreaksOffIsAFailureAndNoShorterList) {
    names = {"a", "b"};
    end = ERROR_NOT_ENOUGH_MEMORY;
    EXPECT_EQ(failure(), "the pipes cannot be listed, error 8");
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(closed, 1);
}

}  // namespace
}  // namespace Tools
}  // namespace Corvane
