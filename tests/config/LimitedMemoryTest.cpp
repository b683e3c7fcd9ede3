#include "cvtp/internal/LimitedMemory.h"

#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>

#include "cvtp/internal/ConfigParser.h"
#include "tests/config/BadFiles.h"
#include "tests/config/ConfigTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Internal::Cvtp::ConfigParser;
using Internal::Cvtp::LimitedMemory;
using xercesc::OutOfMemoryException;

using LimitedMemoryTest = ConfigTest;

/// Fails once, as if a limit was reached, unless an exception is on its way.
class FailingMemory : public LimitedMemory {
 public:
    explicit FailingMemory(std::size_t goodOnes) : LimitedMemory(ENOUGH, ENOUGH, ENOUGH), left(goodOnes + 1) {}

    void* allocate(XMLSize_t size) override {
        if (left > 0 && std::uncaught_exceptions() == 0 && --left == 0) {
            throw OutOfMemoryException();
        }
        return LimitedMemory::allocate(size);
    }

    bool hasFailed() const { return left == 0; }

    void failNoMore() { left = 0; }

 private:
    static constexpr std::size_t ENOUGH = 100 * 1024 * 1024;

    std::size_t left;
};

/// Parses a text, and fails after so many allocations. @return true when it failed.
bool failsAfter(std::size_t goodOnes, const std::string& text) {
    FailingMemory memory(goodOnes);
    try {
        ConfigParser parser(memory);
        const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.data()), text.size(), "text",
                                                false, &memory);
        try {
            parser.parse(source);
        } catch (const xercesc::SAXException&) {
        } catch (const xercesc::XMLException&) {
        } catch (const xercesc::DOMException&) {
        }
        const bool failed = memory.hasFailed();
        memory.failNoMore();
        return failed;
    } catch (const OutOfMemoryException&) {
        return true;
    }
}

std::size_t allocationsFor(const std::string& text) {
    std::size_t count = 0;
    while (failsAfter(count, text)) {
        ++count;
    }
    return count;
}

/// Has most that the parser knows of.
const std::string BIT_OF_EVERYTHING =
    "<?xml version=\"1.0\"?><!DOCTYPE a [<!ENTITY b \"c\"><!ENTITY % d \"\"> %d;<!ELEMENT a (e|(f,(e?,a)+))*>"
    "<!ELEMENT e (#PCDATA|f|a)*><!ATTLIST e g CDATA \"h\" i ID #IMPLIED j (k|l) 'k' m NMTOKENS ' n  o '>"
    "<!NOTATION n SYSTEM \"n\"><!-- c --><?p i?>]><!-- - --><a xmlns:x=\"u\">&b;<e function=\"&b;\" i=\"i\" "
    "x:j=\"k\"><![CDATA[l]]></e><?m n?><e><f/></e><x:f/></a>";

/// Parses with so much memory in all. @return true when it was enough.
bool parsesWith(std::size_t bytes) {
    LimitedMemory memory(bytes, bytes, 4 * 1024 * 1024);
    ConfigParser parser(memory);
    const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(BIT_OF_EVERYTHING.data()),
                                            BIT_OF_EVERYTHING.size(), "text", false, &memory);
    try {
        parser.parse(source);
        return true;
    } catch (const OutOfMemoryException&) {
        return false;
    }
}

}  // namespace

TEST_F(LimitedMemoryTest, GivesBlocksThatCanBeUsed) {
    LimitedMemory memory(10000, 10000, 0);
    void* const first = memory.allocate(100);
    void* const second = memory.allocate(200);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first) % alignof(std::max_align_t), 0u);
    std::memset(first, 1, 100);
    std::memset(second, 2, 200);
    EXPECT_EQ(static_cast<unsigned char*>(first)[99], 1);
    memory.deallocate(first);
    EXPECT_EQ(static_cast<unsigned char*>(second)[0], 2);
    memory.deallocate(second);
    memory.deallocate(nullptr);
}

TEST_F(LimitedMemoryTest, IsItselfWhatExceptionsTakeTheirMemoryFrom) {
    LimitedMemory memory(10000, 10000, 0);
    EXPECT_EQ(memory.getExceptionMemoryManager(), &memory);
}

TEST_F(LimitedMemoryTest, LimitsWhatIsHeldAtATime) {
    LimitedMemory memory(1000, 100000, 0);
    for (int i = 0; i < 10; ++i) {
        void* const block = memory.allocate(600);
        EXPECT_THROW(memory.allocate(600), OutOfMemoryException);
        memory.deallocate(block);
    }
}

TEST_F(LimitedMemoryTest, LimitsWhatIsEverAskedFor) {
    LimitedMemory memory(1000, 5000, 0);
    int blocks = 0;
    try {
        for (; blocks < 100; ++blocks) {
            memory.deallocate(memory.allocate(900));
        }
        ADD_FAILURE() << "there was no end";
    } catch (const OutOfMemoryException&) {
    }
    EXPECT_EQ(blocks, 5);
}

TEST_F(LimitedMemoryTest, CountsWhatABlockCostsBesidesItsSize) {
    LimitedMemory memory(10000, 10000, 0);
    int blocks = 0;
    try {
        for (; blocks < 10000; ++blocks) {
            memory.allocate(1);
        }
        ADD_FAILURE() << "there was no end";
    } catch (const OutOfMemoryException&) {
    }
    EXPECT_GT(blocks, 100);
    EXPECT_LT(blocks, 1000);
}

TEST_F(LimitedMemoryTest, OpensTheReserveWhenALimitIsReached) {
    LimitedMemory memory(1000, 2000, 1000);
    memory.allocate(600);
    EXPECT_THROW(memory.allocate(600), OutOfMemoryException);
    memory.allocate(900);
    EXPECT_THROW(memory.allocate(600), OutOfMemoryException);
    EXPECT_THROW(memory.allocate(600), OutOfMemoryException);
}

TEST_F(LimitedMemoryTest, OpensTheReserveOfWhatIsEverAskedForAsWell) {
    LimitedMemory memory(10000, 1000, 1000);
    memory.deallocate(memory.allocate(600));
    EXPECT_THROW(memory.allocate(600), OutOfMemoryException);
    memory.deallocate(memory.allocate(900));
    EXPECT_THROW(memory.allocate(600), OutOfMemoryException);
}

TEST_F(LimitedMemoryTest, OpensTheReserveWhenAskedTo) {
    LimitedMemory memory(1000, 10000, 1000);
    memory.openReserve();
    memory.openReserve();
    memory.allocate(1800);
    EXPECT_THROW(memory.allocate(600), OutOfMemoryException);
}

TEST_F(LimitedMemoryTest, HasNoLimitWhileAnExceptionIsOnItsWay) {
    LimitedMemory memory(1000, 1000, 0);
    const auto allocate = [](LimitedMemory* from) { EXPECT_NO_THROW(from->allocate(2000)); };
    try {
        const std::unique_ptr<LimitedMemory, decltype(allocate)> atTheEnd(&memory, allocate);
        throw std::runtime_error("on its way");
    } catch (const std::runtime_error&) {
        EXPECT_THROW(memory.allocate(2000), OutOfMemoryException);
    }
}

TEST_F(LimitedMemoryTest, HasItsLimitsWhenItIsMadeWhileAnExceptionIsOnItsWay) {
    const auto make = [](int*) {
        LimitedMemory memory(1000, 1000, 0);
        EXPECT_THROW(memory.allocate(2000), OutOfMemoryException);
    };
    int any = 0;
    try {
        const std::unique_ptr<int, decltype(make)> atTheEnd(&any, make);
        throw std::runtime_error("on its way");
    } catch (const std::runtime_error&) {
    }
}

TEST_F(LimitedMemoryTest, RefusesSizesThatWouldOverflow) {
    LimitedMemory memory(10000, 10000, 0);
    EXPECT_THROW(memory.allocate(static_cast<XMLSize_t>(-1)), OutOfMemoryException);
    EXPECT_THROW(memory.allocate(static_cast<XMLSize_t>(-40)), OutOfMemoryException);
}

// The leak checker finds what is not freed.
TEST_F(LimitedMemoryTest, FreesWhatNobodyHasFreed) {
    LimitedMemory memory(10000, 10000, 0);
    memory.allocate(100);
    memory.deallocate(memory.allocate(100));
    EXPECT_NE(memory.allocate(100), nullptr);
}

// What Xerces throws from a destructor, or frees before it was made, would end the process here.
TEST_F(LimitedMemoryTest, CanRunOutAtAnyMomentOfParsing) {
    EXPECT_GT(allocationsFor(BIT_OF_EVERYTHING), 300u);
    for (const auto& files : {malformedFiles(), outwardFiles("other")}) {
        for (const BadFile& file : files) {
            SCOPED_TRACE(file.name);
            EXPECT_GT(allocationsFor(file.content.substr(0, 1000)), 100u);
        }
    }
}

// The parser that has just enough must take more to clear up.
TEST_F(LimitedMemoryTest, ClearsUpWithTheReserve) {
    std::size_t tooLittle = 1024 * 1024 / 2;
    std::size_t enough = 16 * 1024 * 1024;
    ASSERT_TRUE(parsesWith(enough));
    while (enough - tooLittle > 1) {
        const std::size_t bytes = tooLittle + (enough - tooLittle) / 2;
        (parsesWith(bytes) ? enough : tooLittle) = bytes;
    }
    EXPECT_FALSE(parsesWith(tooLittle));
    EXPECT_TRUE(parsesWith(enough));
}

TEST_F(LimitedMemoryTest, CanRunOutInADeclarationOfAnyDepth) {
    for (const char* const more : {"(b,", "(b|", "(", "(b,(c|"}) {
        LimitedMemory memory(4 * 1024 * 1024, 100 * 1024 * 1024, 2 * 1024 * 1024);
        ConfigParser parser(memory);
        const std::string text = "<!DOCTYPE a [<!ELEMENT a " + repeated(more, 100000);
        const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.data()), text.size(), "text",
                                                false, &memory);
        EXPECT_ANY_THROW(parser.parse(source)) << more;
    }
}

}  // namespace Testing
}  // namespace Corvane
