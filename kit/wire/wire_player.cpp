#include "wire/wire_player.h"

#include "wire/player_socket.h"
#include "wire/wire_messages.h"

#include <vxcamkit/error.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <map>
#include <vector>

namespace vxcam {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr size_t kAhead = 512; // events among which the client's messages are looked for
// So much of the recording is put into the order of its times, but of more bytes no more.
constexpr Seconds kOrdered(2);
constexpr size_t kMostOrdered = size_t{128} << 20U;
constexpr size_t kMostAtOnce = size_t{256} << 10U; // bytes that are sent at once, about
constexpr size_t kMostPieces = 512;                // of them
constexpr std::chrono::milliseconds kStep(50);     // between two looks whether to stop
constexpr int kLeftOutPart = 20; // of the patience: with a client that leaves messages out
constexpr Seconds kFar(1e9);     // for times that are nonsense

// Of any two times.
Seconds secondsBetween(SteadyTime from, SteadyTime to)
{
    return Seconds(to.time_since_epoch()) - Seconds(from.time_since_epoch());
}

bool isLaterPiece(const WireEvent& event, SteadyTime time)
{
    const bool isPiece =
        event.kind == WireEvent::Kind::Message || event.kind == WireEvent::Kind::Stray;
    return isPiece && event.time.steady > time;
}

bool isMessage(const WireEvent& event, bool isSent)
{
    return event.kind == WireEvent::Kind::Message && event.piece.isSent == isSent;
}

// Bytes of the camera.
bool isOfCamera(const WireEvent& event)
{
    const bool isPiece =
        event.kind == WireEvent::Kind::Message || event.kind == WireEvent::Kind::Stray;
    return isPiece && !event.piece.isSent;
}

} // namespace

struct WirePlayer::Body {
    struct Item {
        WireEvent event;
        bool isMet = false; // the client has sent it

        size_t bytes() const { return sizeof(Item) + event.piece.bytes.size(); }
    };

    std::string path;
    PlayOptions options;
    PlayerSocket listener, client;
    uint16_t port = 0;

    std::unique_ptr<WireEvents> events;
    std::deque<Item> ahead;
    size_t aheadBytes = 0;
    SteadyTime aheadTo; // the latest time that was read
    std::unique_ptr<WireSplitter> heard;
    std::map<uint32_t, std::string> answers; // the last of each id
    Clock::time_point anchor, stalled;       // now, and when it began to wait for the client
    SteadyTime anchored;                     // what the anchor is in the recording
    bool isStalled = false, isCut = false;
    bool hasLeft = false;     // nothing more can be sent to the client
    bool isBehindGap = false; // and before the next whole message of the camera
    const std::function<bool()>* isStopped = nullptr;
    PlayBooks books;

    void begin();
    bool accept();
    bool hear();
    void takeCommand(const WirePiece& piece);
    size_t send(std::vector<iovec> pieces);
    void fill();
    bool seesFar() const;
    std::deque<Item>::iterator nearEnd();
    void takeAhead(WireEvent event);
    bool step();
    void pass();
    bool stepSent(const Item& item);
    bool stepReceived();
    std::vector<iovec> duePieces();
    void setAnchor(SteadyTime recorded);
    Clock::time_point dueOf(SteadyTime recorded) const;
    int patience() const;
};

void WirePlayer::Body::begin()
{
    events = std::make_unique<WireEvents>(WireReader(path));
    ahead.clear();
    aheadBytes = 0;
    aheadTo = SteadyTime::min();
    answers.clear();
    books = {};
    isStalled = isCut = hasLeft = isBehindGap = false;
    fill();
    if (ahead.empty()) {
        throw Error(ErrorKind::File,
                    path + ": has nothing to play: " + events->reader().condition().text());
    }
    anchored = ahead.front().event.time.steady;
}

bool WirePlayer::Body::accept()
{
    client.reset(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client.isOpen()) return false;
    const int on = 1;
    ::setsockopt(client.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    heard = std::make_unique<WireSplitter>(true);
    anchor = Clock::now();
    return true;
}

// False when the client has left.
bool WirePlayer::Body::hear()
{
    char bytes[16384];
    const ssize_t count = ::recv(client.get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    if (count == 0) return false;
    heard->add({bytes, static_cast<size_t>(count)}, {});
    while (const std::optional<WirePiece> piece = heard->next()) {
        if (piece->isMessage) takeCommand(*piece);
    }
    return !hasLeft;
}

void WirePlayer::Body::takeCommand(const WirePiece& piece)
{
    const auto find = [&](bool isSame) {
        return std::find_if(ahead.begin(), nearEnd(), [&](const Item& item) {
            const WirePiece& recorded = item.event.piece;
            return isMessage(item.event, true) && !item.isMet && recorded.id() == piece.id() &&
                   (!isSame || recorded.payload() == piece.payload());
        });
    };
    auto found = find(true);
    if (found == nearEnd()) found = find(false);
    if (found != nearEnd()) {
        found->isMet = true;
        ++books.taken;
        return;
    }
    ++books.unexpected;
    const auto answer = answers.find(wireAnswer(piece.id()));
    if (answer != answers.end()) send({{answer->second.data(), answer->second.size()}});
}

// How many went out whole: not all when the client has left or takes nothing any more, or when it
// was stopped meanwhile: what it has of the next one then is the last it gets.
size_t WirePlayer::Body::send(std::vector<iovec> pieces)
{
    Clock::time_point taken = Clock::now();
    size_t first = 0;
    while (first < pieces.size() && !hasLeft) {
        if (client.send(&pieces, &first)) {
            taken = Clock::now();
            continue;
        }
        const bool isFull = errno == EAGAIN || errno == EINTR;
        hasLeft = !isFull || (*isStopped)() || Clock::now() - taken >= options.patience;
        pollfd entry{client.get(), POLLOUT, 0};
        if (!hasLeft) ::poll(&entry, 1, static_cast<int>(kStep.count()));
    }
    return first;
}

// What the client sent may stand far behind what came of it: the thread that notes it may have to
// wait for its turn.
bool WirePlayer::Body::seesFar() const
{
    if (ahead.size() < kAhead) return false;
    return aheadBytes >= kMostOrdered ||
           secondsBetween(ahead.front().event.time.steady, aheadTo) > kOrdered;
}

std::deque<WirePlayer::Body::Item>::iterator WirePlayer::Body::nearEnd()
{
    return ahead.begin() + static_cast<std::ptrdiff_t>(std::min(ahead.size(), kAhead));
}

void WirePlayer::Body::fill()
{
    while (!seesFar()) {
        std::optional<WireEvent> event = events->next();
        if (!event) return;
        takeAhead(std::move(*event));
    }
}

// Of messages that a gap cuts, nothing is played: the client would put their pieces together.
void WirePlayer::Body::takeAhead(WireEvent event)
{
    using Kind = WireEvent::Kind;
    if (event.kind == Kind::Gap) {
        while (!ahead.empty() && ahead.back().event.kind == Kind::Stray) {
            aheadBytes -= ahead.back().bytes();
            ahead.pop_back();
        }
        isBehindGap = true;
        return;
    }
    if (event.camera != options.camera) return;
    const bool isReceived = !event.piece.isSent;
    if (event.kind == Kind::Stray && isReceived && isBehindGap) return;
    if (event.kind == Kind::Message && isReceived) isBehindGap = false;
    // What the camera did upon a message may have been noted before that, but is later.
    auto place = ahead.end();
    while (isMessage(event, true) && place != ahead.begin() &&
           isLaterPiece(std::prev(place)->event, event.time.steady)) {
        --place;
    }
    aheadTo = std::max(aheadTo, event.time.steady);
    aheadBytes += ahead.insert(place, {std::move(event)})->bytes();
}

void WirePlayer::Body::setAnchor(SteadyTime recorded)
{
    anchor = Clock::now();
    anchored = recorded;
}

Clock::time_point WirePlayer::Body::dueOf(SteadyTime recorded) const
{
    if (options.speed <= 0) return anchor;
    const Seconds since(secondsBetween(anchored, recorded).count() / options.speed);
    return anchor + std::chrono::duration_cast<Clock::duration>(std::clamp(since, -kFar, kFar));
}

// False as long as the client has not sent it.
bool WirePlayer::Body::stepSent(const Item& item)
{
    if (item.isMet) {
        setAnchor(item.event.time.steady);
        return true;
    }
    const bool wasLeftOut =
        std::any_of(ahead.begin(), nearEnd(), [](const Item& other) { return other.isMet; });
    if (!wasLeftOut) {
        isStalled = false;
        return false;
    }
    if (!isStalled) stalled = Clock::now();
    isStalled = true;
    if (Clock::now() - stalled < options.patience / kLeftOutPart) return false;
    setAnchor(item.event.time.steady);
    ++books.skipped;
    return true;
}

// What is due of the camera's bytes that come next.
std::vector<iovec> WirePlayer::Body::duePieces()
{
    std::vector<iovec> pieces;
    size_t bytes = 0;
    const Clock::time_point now = Clock::now();
    for (Item& item : ahead) {
        WireEvent& event = item.event;
        if (bytes >= kMostAtOnce || pieces.size() >= kMostPieces) break;
        if (!isOfCamera(event) || now < dueOf(event.time.steady)) break;
        pieces.push_back({event.piece.bytes.data(), event.piece.bytes.size()});
        bytes += event.piece.bytes.size();
    }
    return pieces;
}

bool WirePlayer::Body::stepReceived()
{
    const std::vector<iovec> pieces = duePieces();
    if (pieces.empty()) return false;
    for (size_t left = send(pieces); left > 0; --left) {
        const WireEvent& event = ahead.front().event;
        if (event.kind == WireEvent::Kind::Message) {
            ++books.played;
            answers[event.piece.id()] = event.piece.bytes;
        }
        pass();
    }
    return !hasLeft;
}

// What comes first is done.
void WirePlayer::Body::pass()
{
    isStalled = false;
    aheadBytes -= ahead.front().bytes();
    ahead.pop_front();
}

// Does the next thing; false when it is not time for it.
bool WirePlayer::Body::step()
{
    fill();
    books.isOver = ahead.empty();
    if (ahead.empty() || !client.isOpen()) return false;
    const Item& item = ahead.front();
    const WireEvent& event = item.event;
    if (isOfCamera(event)) return stepReceived();
    bool isDone = true;
    if (event.kind == WireEvent::Kind::Message) {
        isDone = stepSent(item);
    } else if (event.kind == WireEvent::Kind::LinkLost) {
        isDone = Clock::now() >= dueOf(event.time.steady);
        isCut = isDone;
    } else if (event.kind != WireEvent::Kind::Stray) {
        setAnchor(event.time.steady);
    }
    if (isDone) pass();
    return isDone;
}

// ms until the next thing is due, or may be.
int WirePlayer::Body::patience() const
{
    if (ahead.empty() || !client.isOpen()) return static_cast<int>(kStep.count());
    const Item& item = ahead.front();
    if (isMessage(item.event, true) && !item.isMet) return static_cast<int>(kStep.count());
    const auto left = dueOf(item.event.time.steady) - Clock::now();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(left).count() + 1;
    return static_cast<int>(std::clamp<int64_t>(ms, 1, kStep.count()));
}

WirePlayer::WirePlayer(const std::string& path, const PlayOptions& options)
    : body_(std::make_unique<Body>())
{
    body_->path = path;
    body_->options = options;
    body_->begin();
    body_->port = body_->listener.listen(options.port);
}

WirePlayer::~WirePlayer() = default;

uint16_t WirePlayer::port() const
{
    return body_->port;
}

const WireCondition& WirePlayer::condition() const
{
    return body_->events->reader().condition();
}

PlayBooks WirePlayer::play(const std::function<bool()>& isStopped)
{
    Body& body = *body_;
    body.begin();
    body.isStopped = &isStopped;
    while (!isStopped() && !body.hasLeft) {
        const bool isOpen = body.client.isOpen();
        pollfd entry{isOpen ? body.client.get() : body.listener.get(), POLLIN, 0};
        const bool isReady = ::poll(&entry, 1, body.patience()) > 0;
        if (isReady && !isOpen) body.accept();
        if (isReady && isOpen && !body.hear()) break;
        while (!isStopped() && body.step() && !body.isCut) {
            if (body.client.isOpen() && !body.hear()) break;
        }
        if (body.isCut) body.client.reset(-1);
        body.isCut = false;
        if (body.books.isOver && !body.client.isOpen()) break;
    }
    body.client.reset(-1);
    body.fill(); // the client may leave as soon as it has the last bytes
    body.books.isOver = body.ahead.empty();
    return body.books;
}

} // namespace vxcam
