#pragma once

#include <cstddef>
#include <xercesc/framework/MemoryManager.hpp>

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The memory of one parser, with a limit for what it holds at a time and one for all that it ever asks for. The
/// second limits its time, too: whatever it repeats without end, it asks for memory each time.
///
/// Some destructors of Xerces allocate, and what they throw ends the process. So there is a reserve for clearing
/// up, which is opened as soon as a limit is reached or the parsing is over, and no limit at all while an exception
/// is on its way.
///
/// One thread at a time allocates and frees.
class LimitedMemory : public xercesc::MemoryManager {
 public:
    /// All sizes are in bytes and include what each block costs besides its size.
    ///
    /// @param mostEver what was freed again is included.
    LimitedMemory(std::size_t mostAtATime, std::size_t mostEver, std::size_t reserve);

    /// Frees what nobody has freed: a parser that runs out of memory leaves some behind.
    ~LimitedMemory() override;

    LimitedMemory(const LimitedMemory&) = delete;
    LimitedMemory& operator=(const LimitedMemory&) = delete;

    xercesc::MemoryManager* getExceptionMemoryManager() override { return this; }

    /// @throws xercesc::OutOfMemoryException when a limit is reached, or the process has no more memory.
    void* allocate(XMLSize_t size) override;
    void deallocate(void* memory) override;

    /// Adds the reserve to both limits, once.
    void openReserve();

 private:
    /// Stands before each block.
    struct alignas(std::max_align_t) Head {
        Head* previous;
        Head* next;
        std::size_t size;
    };

    bool isOnlyClearingUp() const;

    /// The ring of all blocks.
    Head blocks;
    std::size_t heldNow = 0;
    std::size_t heldEver = 0;
    std::size_t mostAtATime;
    std::size_t mostEver;
    std::size_t reserve;
    /// Exceptions that were on their way before there was anything to parse.
    const int uncaughtBefore;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
