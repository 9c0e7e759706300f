// Discovery: datagrams that come in answer to the broadcast.
//
// Input: how many cameras may be listed, then for each datagram its source's last byte, its length
// and its bytes. The list has exactly the room it is said to have.
#include "discovery.h"
#include "tcFuzzInput.h"

#include <memory>
#include <set>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcFuzzInput input(bytes, count);
    const int room = input.U8() % 9;
    const std::unique_ptr<tsEnetData[]> list(new tsEnetData[static_cast<size_t>(room)]());
    int found = 0;
    while (input.Left() > 0 && found < room) {
        list[found].SourceAddr.sin_family = AF_INET;
        list[found].SourceAddr.sin_addr.s_addr = input.U8();
        const size_t length = input.U8();
        const std::vector<uint8_t> content = input.Bytes(length);
        const std::unique_ptr<uint8_t[]> datagram(new uint8_t[content.size()]);
        std::copy(content.begin(), content.end(), datagram.get());
        if (vx::TakeDiscoveryReply(datagram.get(), content.size(), list.get(), found)) {
            Require(content.size() >= 8, "a reply has its two words");
            ++found;
        }
    }
    std::set<uint32_t> addresses;
    for (int i = 0; i < found; ++i)
        Require(addresses.insert(list[i].SourceAddr.sin_addr.s_addr).second, "each address once");
    return 0;
}
