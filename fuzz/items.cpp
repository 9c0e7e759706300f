// Requests to the debug items' server.
//
// Input: requests, each behind its length in two bytes. There are three items; what is answered
// ends in a zero byte, and no request makes a fourth.
#include "items.h"
#include "tcDbgItem.h"
#include "tcFuzzInput.h"

#include <iostream>
#include <memory>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    static int* whole = tcDbgItem::AddItem("gain", 7, "a whole number");
    static float* real = tcDbgItem::AddItem("offset [x]", 1.5f, "a real one");
    static tcDbgItem& none = *new tcDbgItem;
    tcDbgItem::GetMap()["none"] = &none;
    *whole = 7;
    *real = 1.5f;

    static std::ostringstream& nowhere = *new std::ostringstream;
    std::streambuf* before = std::cout.rdbuf(nowhere.rdbuf());
    tcFuzzInput input(bytes, count);
    for (int i = 0; i < 8 && input.Left() > 0; ++i) {
        const std::string request = input.Text(input.U16() % 1400);
        if (request.empty()) continue;
        // At most 1024 bytes are read, and terminated.
        std::string given = request.substr(0, 1024);
        const std::string answer = vx::AnswerOfItems(given.data());
        Require(answer.empty() || answer.back() == '\0', "an answer ends in a zero byte");
        Require(tcDbgItem::GetMap().size() == 3, "requests make no items");
    }
    nowhere.str("");
    std::cout.rdbuf(before);
    return 0;
}
