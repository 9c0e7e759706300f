// Settings as conversations: what a call sends, what the camera answers, what comes out.
#ifndef CONVERSATIONS_H
#define CONVERSATIONS_H

#include "tcTestCamera.h"

#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

// "result: output output ..."
template <class... Outputs>
std::string Told(int result, Outputs... outputs)
{
    std::ostringstream text;
    text << result << ":";
    ((text << ' ' << outputs), ...);
    return text.str();
}

struct tsConversation {
    const char* name;
    std::function<std::string(tcVXCamera&)> call;
    uint32_t sentId; // 0: nothing is sent
    tBytes sentPayload;
    uint32_t answerId; // 0: nothing is answered
    tBytes answer;
    std::string told;
};

inline void PrintTo(const tsConversation& conversation, std::ostream* os)
{
    *os << conversation.name;
}

inline tcPayload P()
{
    return {};
}

// One line each where the call has no outputs.
template <class... Parameters, class... Arguments>
std::function<std::string(tcVXCamera&)> Set(int (tcVXCamera::*operation)(Parameters...),
                                            Arguments... arguments)
{
    return [=](tcVXCamera& camera) { return Told((camera.*operation)(arguments...)); };
}

template <class Value>
std::function<std::string(tcVXCamera&)> Get(int (tcVXCamera::*operation)(Value*))
{
    return [=](tcVXCamera& camera) {
        Value value{};
        memset(&value, 0x77, sizeof value); // a getter writes the whole variable
        const int result = (camera.*operation)(&value);
        return Told(result, value);
    };
}

template <class First, class Second, class Third>
std::function<std::string(tcVXCamera&)> Get(int (tcVXCamera::*operation)(First*, Second*, Third*))
{
    return [=](tcVXCamera& camera) {
        First first;
        Second second;
        Third third;
        memset(&first, 0x77, sizeof first);
        memset(&second, 0x77, sizeof second);
        memset(&third, 0x77, sizeof third);
        const int result = (camera.*operation)(&first, &second, &third);
        return Told(result, first, second, third);
    };
}

template <class Value>
std::function<std::string(tcVXCamera&)> Get(int (tcVXCamera::*operation)(Value*, Value*))
{
    return [=](tcVXCamera& camera) {
        Value first{}, second{};
        const int result = (camera.*operation)(&first, &second);
        return Told(result, first, second);
    };
}

using C = tcVXCamera;

// The one half of them: exposure, binning, cooling, registers and the camera itself.
std::vector<tsConversation> BasicConversations();

// The other: triggers, pins, sensors, recording, mirroring, hardware and network.
std::vector<tsConversation> FurtherConversations();

#endif
