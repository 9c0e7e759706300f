#include "linkcheck.h"

#include "interrupt.h"
#include "tcSession.h"
#include "vxcamiface.h"

#include <algorithm>
#include <array>
#include <random>

namespace {

using tpClock = std::chrono::steady_clock;

constexpr int gnLinkTestCommand = 103;
constexpr uint32_t gnOwnData = 0; // the pattern

using tpBlock = std::array<uint8_t, gnLinkTestBytes>;

} // namespace

tsLinkCheck TestLink(tcSession& session, int messages)
{
    std::mt19937 random(std::random_device{}());
    tsLinkCheck check;
    const auto start = tpClock::now();
    for (int i = 0; i < messages; ++i) {
        ThrowIfInterrupted();
        tpBlock sent{}, received{};
        std::generate(sent.begin(), sent.end(), [&] { return static_cast<uint8_t>(random()); });
        tsLinkTestCmd test{};
        test.Pattern = gnOwnData;
        test.Count = 1;
        test.DataLength = gnLinkTestBytes;
        test.SendData = sent.data();
        test.ReceiveBuffer = received.data();
        check.result = VXEngineeringCommand(session.Handle(), gnLinkTestCommand, &test);
        if (check.result != eVXOk) return check;
        ++check.done;
        const bool isIntact =
            sent == received && test.AnswersReceived == 1 && test.ReceivedBytes == gnLinkTestBytes;
        if (!isIntact) ++check.damaged;
    }
    const std::chrono::duration<double, std::micro> elapsed = tpClock::now() - start;
    check.megabytesPerSecond = 2.0 * messages * gnLinkTestBytes / elapsed.count();
    return check;
}

std::vector<double> MeasureTrips(tcSession& session, int count)
{
    std::vector<double> trips;
    for (int i = 0; i < count; ++i) {
        long exposure = 0;
        ThrowIfInterrupted();
        const auto start = tpClock::now();
        const int result = VXGetExposureTime(session.Handle(), &exposure);
        const std::chrono::duration<double, std::milli> trip = tpClock::now() - start;
        session.Require(result, "exposure time");
        trips.push_back(trip.count());
    }
    std::sort(trips.begin(), trips.end());
    return trips;
}

double Percentile(const std::vector<double>& sorted, unsigned percent)
{
    return sorted[(sorted.size() * percent + 99) / 100 - 1];
}
