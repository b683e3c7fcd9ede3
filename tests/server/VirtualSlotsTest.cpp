// The order of the virtual functions of the public classes, which programs that were built against an earlier
// library rely on. Not for MSVC: in the C++ ABI of all other compilers a pointer to a member function tells the
// slot.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "cvtp/AbstractCvtpRequest.h"
#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpConnectionManager.h"
#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpMessageIn.h"
#include "cvtp/CvtpMessageOut.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"
#include "cvtp/NotifyRequest.h"
#include "cvtp/PostRequest.h"

namespace Corvane {
namespace Testing {

namespace {

using namespace Cvtp;

using Slots = std::vector<std::size_t>;

/// The place in the table of virtual functions, counted from 0. Places 0 and 1 are the destructor's.
template <class Function>
std::size_t slotOf(Function member) {
    static_assert(std::is_member_function_pointer<Function>::value, "only member functions have slots");
    std::uintptr_t word = 0;
    std::memcpy(&word, &member, sizeof word);
    // The first word is the offset in the table; on some processors its lowest bit says that it is one.
    return (word & ~std::uintptr_t{1}) / sizeof(void*);
}

/// A class whose one virtual function of its own stands behind all those of its base.
template <class Base>
struct Behind : Base {
    virtual void behind() {}
};

/// How many places the virtual functions of a class take.
template <class Class>
std::size_t slotsOf() {
    return slotOf(&Behind<Class>::behind);
}

template <class Message>
Slots incomingSlots() {
    using GetBody = void (Message::*)(char*&, std::size_t&);
    return {slotOf(&Message::getStartLine),
            slotOf(&Message::getHeader),
            slotOf(&Message::getHeaders),
            slotOf(&Message::getHeaderNames),
            slotOf(static_cast<GetBody>(&Message::getBody)),
            slotOf(&Message::getBodyStream),
            slotsOf<Message>()};
}

template <class Message>
Slots outgoingSlots() {
    return {slotOf(&Message::getStartLine), slotOf(&Message::addHeader), slotOf(&Message::setHeader),
            slotOf(&Message::removeHeader), slotOf(&Message::setBody),   slotOf(&Message::isCommitted)};
}

template <class Request>
Slots requestSlots() {
    Slots slots = outgoingSlots<Request>();
    for (const std::size_t slot : {slotOf(&Request::getMethod), slotOf(&Request::setResource),
                                   slotOf(&Request::getResource), slotOf(&Request::setBodyStream)}) {
        slots.push_back(slot);
    }
    slots.push_back(slotsOf<Request>());
    return slots;
}

TEST(VirtualSlots, OfTheHandler) {
    EXPECT_EQ(slotOf(&CvtpHandler::doReady), 2u);
    EXPECT_EQ(slotOf(&CvtpHandler::doNotify), 3u);
    EXPECT_EQ(slotOf(&CvtpHandler::doPost), 4u);
    EXPECT_EQ(slotsOf<CvtpHandler>(), 5u);
}

TEST(VirtualSlots, OfTheServer) {
    EXPECT_EQ(slotOf(&CvtpServer::run), 2u);
    EXPECT_EQ(slotsOf<CvtpServer>(), 3u);
}

TEST(VirtualSlots, OfIncomingMessages) {
    const Slots expected = {2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(incomingSlots<CvtpMessageIn>(), expected);
    EXPECT_EQ(incomingSlots<CvtpServerRequest>(), expected);
    EXPECT_EQ(incomingSlots<CvtpResponse>(), expected);
}

TEST(VirtualSlots, OfOutgoingMessages) {
    const Slots expected = {2, 3, 4, 5, 6, 7};
    EXPECT_EQ(outgoingSlots<CvtpMessageOut>(), expected);
    EXPECT_EQ(slotsOf<CvtpMessageOut>(), 8u);
    EXPECT_EQ(outgoingSlots<CvtpServerResponse>(), expected);
    EXPECT_EQ(slotsOf<CvtpServerResponse>(), 8u);
}

TEST(VirtualSlots, OfRequests) {
    const Slots expected = {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    EXPECT_EQ(requestSlots<AbstractCvtpRequest>(), expected);
    EXPECT_EQ(requestSlots<OneWayRequest>(), expected);
    EXPECT_EQ(requestSlots<NotifyRequest>(), expected);
    EXPECT_EQ(requestSlots<TwoWayRequest>(), expected);
    EXPECT_EQ(requestSlots<PostRequest>(), expected);
}

TEST(VirtualSlots, OfTheClientAndItsManager) {
    EXPECT_EQ(slotsOf<CvtpClient>(), 2u);
    EXPECT_EQ(slotOf(&CvtpConnectionManager::getPipe), 2u);
    EXPECT_EQ(slotOf(&CvtpConnectionManager::returnPipe), 3u);
    EXPECT_EQ(slotOf(&CvtpConnectionManager::removePipe), 4u);
    EXPECT_EQ(slotsOf<CvtpConnectionManager>(), 5u);
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
