// The simulated camera's side of a connection: commands in any order and form.
//
// Input: options, then pieces, each behind its length in two bytes. What the camera sends is read
// between pieces and must be whole messages, numbered one after the other.
#include "tcFuzzInput.h"
#include "tcSimClient.h"

#include <memory>

#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint16_t nRows = 12, nColumns = 20;
constexpr int nRounds = 12;           // of what is due, after each piece
constexpr size_t nMostRead = 1 << 20; // bytes in one round

// The camera, which stays as it is between clients, and what runs it.
struct tsWorld {
    tsSimOptions options = Options();
    double time = 0;
    tcSimCamera camera{{nRows, nColumns, 1, "fuzz", 1, 20.0}};
    tcSimLedger ledger{[](const tsSimEvent&) {}, true};
    asio::io_context io;
    tcSimWorker worker{nRows, nColumns, 1};
    tcSimFaults faults{{}, 1};
    tsSimContext context{options,
                         camera,
                         ledger,
                         worker,
                         io,
                         [this] { return time += 0.5; },
                         [](double) { return tsSimMoment{}; },
                         faults,
                         {}};

    static tsSimOptions Options()
    {
        tsSimOptions options;
        options.rows = nRows;
        options.columns = nColumns;
        options.timeScale = 1e6;
        return options;
    }
};

// Looks at what the camera sent.
class tcChecker
{
public:
    void Take(const uint8_t* bytes, size_t count)
    {
        maHeld.insert(maHeld.end(), bytes, bytes + count);
        size_t done = 0;
        while (maHeld.size() - done >= sizeof(tsMsgHeader)) {
            tsMsgHeader header;
            std::memcpy(&header, maHeld.data() + done, sizeof header);
            Require(header.Magic == gnMessageMagic, "messages follow one another");
            Require(header.Length + sizeof header <= gnLargestMessage, "a message has a limit");
            if (maHeld.size() - done < sizeof header + header.Length) break;
            Require(header.SeqNo == mnSequence++, "messages are numbered");
            Require(header.IDD == gnInterfaceVersion, "messages have the version");
            Require(header.MsgId >= gnFirstUserDefinedId || FindAnswer(header.MsgId) != nullptr,
                    "messages are those of a camera");
            done += sizeof header + header.Length;
        }
        maHeld.erase(maHeld.begin(), maHeld.begin() + static_cast<ptrdiff_t>(done));
    }

private:
    std::vector<uint8_t> maHeld;
    uint8_t mnSequence = 0;
};

class tcConversation
{
public:
    explicit tcConversation(tsWorld& world) : mWorld(world)
    {
        int ends[2];
        Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
        mhEnd = ends[0];
        asio::ip::tcp::socket socket(world.io);
        socket.assign(asio::ip::tcp::v4(), ends[1]);
        world.camera.Reset();
        world.camera.Readout().Abort();
        world.io.restart();
        mpClient = std::make_shared<tcSimClient>(std::move(socket), world.context, "fuzz", [] {});
        mpClient->Begin();
    }
    ~tcConversation()
    {
        mpClient->End();
        mpClient.reset();
        mWorld.worker.Cancel();
        mWorld.io.poll();
        close(mhEnd);
    }
    tcConversation(const tcConversation&) = delete;
    tcConversation& operator=(const tcConversation&) = delete;

    void Say(const std::vector<uint8_t>& bytes)
    {
        if (send(mhEnd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) return;
        for (int round = 0; round < nRounds; ++round) {
            mWorld.io.poll();
            if (!Listen()) break;
        }
    }
    // Gives a picture that is being made some time.
    void Wait()
    {
        for (int round = 0; round < nRounds && mWorld.camera.Readout().Running(); ++round) {
            mWorld.io.run_one_for(std::chrono::milliseconds(1));
            Listen();
        }
    }

private:
    bool Listen()
    {
        uint8_t bytes[65536];
        for (size_t all = 0; all < nMostRead;) {
            const auto count = recv(mhEnd, bytes, sizeof bytes, MSG_DONTWAIT);
            if (count <= 0) return all > 0;
            mChecker.Take(bytes, static_cast<size_t>(count));
            all += static_cast<size_t>(count);
        }
        return true;
    }

    tsWorld& mWorld;
    int mhEnd;
    std::shared_ptr<tcSimClient> mpClient;
    tcChecker mChecker;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    static tsWorld& world = *new tsWorld;
    tcFuzzInput input(bytes, count);
    const unsigned options = input.U8();
    world.options.heartbeatSeconds = (options & 1) != 0 ? 0.001 : 0;
    world.options.reuseFrame = (options & 2) != 0;
    tcConversation conversation(world);
    for (int i = 0; i < 30 && input.Left() > 0; ++i) {
        const unsigned length = input.U16();
        conversation.Say(input.Bytes(length % 1200));
        if ((length & 0x8000) != 0) conversation.Wait();
    }
    return 0;
}
