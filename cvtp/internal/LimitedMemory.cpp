#include "cvtp/internal/LimitedMemory.h"

#include <cstdlib>
#include <exception>
#include <limits>
#include <new>
#include <xercesc/util/OutOfMemoryException.hpp>

namespace Corvane {
namespace Internal {
namespace Cvtp {

LimitedMemory::LimitedMemory(std::size_t mostAtATime, std::size_t mostEver, std::size_t reserve)
    : blocks{&blocks, &blocks, 0},
      mostAtATime(mostAtATime),
      mostEver(mostEver),
      reserve(reserve),
      uncaughtBefore(std::uncaught_exceptions()) {}

LimitedMemory::~LimitedMemory() {
    while (blocks.next != &blocks) {
        deallocate(blocks.next + 1);
    }
}

void* LimitedMemory::allocate(XMLSize_t size) {
    if (size > std::numeric_limits<std::size_t>::max() / 2) {
        throw xercesc::OutOfMemoryException();
    }
    const std::size_t whole = sizeof(Head) + size;
    if ((heldNow + whole > mostAtATime || heldEver + whole > mostEver) && !isOnlyClearingUp()) {
        openReserve();
        throw xercesc::OutOfMemoryException();
    }
    void* const memory = std::malloc(whole);
    if (memory == nullptr) {
        throw xercesc::OutOfMemoryException();
    }
    heldNow += whole;
    heldEver += whole;
    Head* const head = new (memory) Head{&blocks, blocks.next, whole};
    head->next->previous = head;
    blocks.next = head;
    return head + 1;
}

void LimitedMemory::deallocate(void* memory) {
    if (memory == nullptr) {
        return;
    }
    Head* const head = static_cast<Head*>(memory) - 1;
    heldNow -= head->size;
    head->previous->next = head->next;
    head->next->previous = head->previous;
    std::free(head);
}

void LimitedMemory::openReserve() {
    mostAtATime += reserve;
    mostEver += reserve;
    reserve = 0;
}

bool LimitedMemory::isOnlyClearingUp() const {
    return std::uncaught_exceptions() > uncaughtBefore;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
