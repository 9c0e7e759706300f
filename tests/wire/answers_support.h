// Questions and answers as bytes: a table of them is walked through line by line.
#ifndef ANSWERS_SUPPORT_H
#define ANSWERS_SUPPORT_H

#include "tcWirePeer.h"

#include <tcVXCamera.h>

struct tsAnswerCase {
    const char* Name;
    std::string (*Call)(int handle);
    unsigned Question;
    tcPattern Asks;
    unsigned Answer;
    tcPattern Says;
    std::string Expected;
};

inline tcVXCamera* Camera(int handle)
{
    return tcVXCamera::gpCameraMap->at(unsigned(handle));
}

inline void Converse(tcWirePeer& peer, const tsAnswerCase& one)
{
    SCOPED_TRACE(one.Name);
    auto told = tcWirePeer::Asked([&] { return one.Call(peer.Handle()); });
    ASSERT_NO_FATAL_FAILURE(peer.Hears(one.Question, one.Asks));
    peer.Say(one.Answer, one.Says);
    EXPECT_EQ(told.get(), one.Expected);
}

inline void Walk(const std::vector<tsAnswerCase>& cases)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    for (const tsAnswerCase& one : cases)
        ASSERT_NO_FATAL_FAILURE(Converse(peer, one));
}

// A getter with one output, which is all ones before.
template <class tValue, int (*Function)(int, tValue*)>
std::string One(int handle)
{
    tValue value{};
    memset(&value, 0xFF, sizeof value);
    const int result = Function(handle, &value);
    return Told(result, value);
}

// Sixteen words whose lowest and highest bytes count.
inline tcPattern Words(unsigned b0, unsigned b1, unsigned b2, unsigned b3)
{
    tBytes bytes;
    for (unsigned i = 0; i < 16; ++i) {
        for (unsigned byte : {b0 + i, b1, b2, b3 + i})
            bytes.push_back(static_cast<uint8_t>(byte));
    }
    return bytes;
}

#endif
