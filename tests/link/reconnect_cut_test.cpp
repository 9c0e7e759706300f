// The connection breaks within a message.
#include "link_support.h"
#include "reconnect_support.h"

using testing::ElementsAre;

TEST_F(Reconnect, DoesNotResetTheParser)
{
    Open();
    const std::string message = UserMessage("cut in two");
    for (size_t cut : {1, 7, 12, 15}) {
        tcReceivedMessages::Clear();
        ASSERT_TRUE(peer.SendPiece(message.substr(0, cut)));
        peer.Close();
        ASSERT_TRUE(peer.Accept());
        ASSERT_TRUE(peer.Send(message.substr(cut)));
        ASSERT_TRUE(tcReceivedMessages::Await(1));
        EXPECT_THAT(tcReceivedMessages::All(), ElementsAre(message));
    }
}

TEST_F(Reconnect, FinishesACutMessageWithWhatComesAndFindsTheNextOne)
{
    Open();
    const std::string cut = UserMessage(std::string(20, 'a')), next = UserMessage("next");
    ASSERT_TRUE(peer.SendPiece(cut.substr(0, 22)));
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    ASSERT_TRUE(peer.Send(std::string(12, 'b') + next));
    ASSERT_TRUE(tcReceivedMessages::Await(2));
    EXPECT_THAT(tcReceivedMessages::All(),
                ElementsAre(cut.substr(0, 22) + std::string(10, 'b'), next));
}

// A camera that is cut off after some bytes of a message. What comes then and whether it counts as
// damaged is noted.
class tcCutCamera
{
public:
    explicit tcCutCamera(const std::string& whole, size_t cut) : mCamera("127.0.0.1", mPeer.Port())
    {
        spCamera = &mCamera;
        svIsDamaged.clear();
        sbEnded = false;
        mCamera.SetUserDefinedCallback(Note);
        auto opened = std::async(std::launch::async, [this] { return mCamera.Initialize(); });
        EXPECT_TRUE(ShakeHands(mPeer));
        EXPECT_NE(0, opened.get());
        EXPECT_TRUE(cut == 0 || mPeer.SendPiece(whole.substr(0, cut)));
        mPeer.Close();
        EXPECT_TRUE(mPeer.Accept());
    }
    ~tcCutCamera() { spCamera = nullptr; }
    tcCutCamera(const tcCutCamera&) = delete;
    tcCutCamera& operator=(const tcCutCamera&) = delete;

    // Sends, and tells of each message dispatched whether it counts as damaged.
    std::vector<bool> Damaged(const std::string& bytes)
    {
        EXPECT_TRUE(mPeer.Send(bytes + MessageBytes(nEndId, "")));
        EXPECT_TRUE(WaitUntil([] { return sbEnded.load(); }));
        return svIsDamaged;
    }
    tsStatistics Figures() const
    {
        tsStatistics figures{};
        mCamera.GetStatistics(&figures, sizeof figures);
        return figures;
    }

private:
    static constexpr uint32_t nEndId = 0xC6;
    static void Note(int, void* message, int length)
    {
        const std::string bytes(static_cast<const char*>(message),
                                static_cast<size_t>(length) + 12);
        const bool isDamaged = spCamera->MessageSpansConnections();
        if (IdOf(bytes) == nEndId) {
            sbEnded = true;
        } else {
            svIsDamaged.push_back(isDamaged);
        }
    }
    static inline std::vector<bool> svIsDamaged; // of the receive thread until the end
    static inline std::atomic<bool> sbEnded{false};
    static inline tcVXCamera_Ethernet* spCamera = nullptr;

    tcScriptedCamera mPeer;
    tcVXCamera_Ethernet mCamera;
};

TEST(ReconnectCut, MarksAMessageThatIsFinishedByTheNextConnectionAtEveryOffset)
{
    tcTimedLog& log = CameraLog();
    const std::string whole = UserMessage("0123456789abcdef");
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        log.Clear();
        const bool isInside = cut > 0 && cut < whole.size();
        tcCutCamera camera(whole, cut);
        // What is missing comes, and then whole messages.
        const std::vector<bool> expected{isInside, false, false};
        EXPECT_EQ(expected, camera.Damaged(whole.substr(cut) + whole + whole)) << cut;
        const tsStatistics figures = camera.Figures();
        EXPECT_EQ(isInside ? 1u : 0u, figures.MessagesBad) << cut;
        EXPECT_EQ(isInside ? 4u : 5u, figures.MessagesReceived) << cut; // one of the handshake
        EXPECT_EQ(isInside ? 1u : 0u,
                  log.Errors("CallBackParser the connection broke inside a message").size())
            << cut;
    }
}

TEST(ReconnectCut, MarksOnlyTheMessageThatSwallowsTheBeginningOfTheNextConnection)
{
    const std::string whole = UserMessage("0123456789abcdef");
    for (size_t cut = 1; cut < whole.size(); ++cut) {
        tcCutCamera camera(whole, cut);
        std::vector<bool> damaged = camera.Damaged(whole + whole + whole);
        // Length, version and id that come from the other message may keep the first one away; and
        // one byte alone is skipped, as the next does not continue the magic.
        const tsStatistics figures = camera.Figures();
        EXPECT_EQ(cut == 1 ? 0u : 1u, figures.MessagesBad) << cut;
        if (damaged.size() == 3 && cut > 1) {
            EXPECT_TRUE(damaged[0]) << cut;
            damaged.erase(damaged.begin());
        }
        EXPECT_EQ(std::vector<bool>(cut == 1 ? 3 : 2, false), damaged) << cut;
    }
}
