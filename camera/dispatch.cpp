// One message in: check, find its row, complete the item or call its handler.
#include "tcExtension.h"

#include <algorithm>
#include <cstring>

namespace {

// The messages that arrive by the thousand and are logged with restraint.
bool IsHighRate(uint32_t id)
{
    return id == ansPixels16.id || id == ansPixels32.id || id == ansIgnored82.id;
}

bool IsPixels(uint32_t id)
{
    return id == ansPixels16.id || id == ansPixels32.id || id == ansPixels8.id;
}

// Copies `bytes` of the message from `offset` on; what the message does not carry reads as zero.
void CopyOut(const tuCameraMessages& message, size_t offset, void* to, size_t bytes)
{
    const size_t length = static_cast<size_t>(message.header.Length) + gnHeaderBytes;
    const size_t carried = offset < length ? std::min(bytes, length - offset) : 0;
    memcpy(to, message.bytes + offset, carried);
    memset(static_cast<char*>(to) + carried, 0, bytes - carried);
}

template <class Value>
Value PayloadAt(const tuCameraMessages& message, size_t offset)
{
    Value value;
    CopyOut(message, gnHeaderBytes + offset, &value, sizeof value);
    return value;
}

} // namespace

// Marks the calling thread as one that dispatches, so that waiting calls refuse it.
class tcVXCamera::tcDispatchScope
{
public:
    explicit tcDispatchScope(tcVXCamera& camera)
        : mCamera(camera), mrInnermost(tpInnermost), mpOuter(mrInnermost)
    {
        mrInnermost = this;
    }
    ~tcDispatchScope() { mrInnermost = mpOuter; }
    tcDispatchScope(const tcDispatchScope&) = delete;
    tcDispatchScope& operator=(const tcDispatchScope&) = delete;

    static tcVXCamera* Innermost()
    {
        return tpInnermost != nullptr ? &tpInnermost->mCamera : nullptr;
    }
    static bool Covers(const tcVXCamera& camera)
    {
        const tcDispatchScope* scope = tpInnermost;
        while (scope != nullptr && &scope->mCamera != &camera) {
            scope = scope->mpOuter;
        }
        return scope != nullptr;
    }

private:
    static thread_local const tcDispatchScope* tpInnermost;

    tcVXCamera& mCamera;
    const tcDispatchScope*& mrInnermost; // looked up once, which costs a call
    const tcDispatchScope* mpOuter;
};

thread_local const tcVXCamera::tcDispatchScope* tcVXCamera::tcDispatchScope::tpInnermost = nullptr;

tcVXCamera* tcVXCamera::CallingCamera()
{
    return tcDispatchScope::Innermost();
}

bool tcVXCamera::OnReceiveThread() const
{
    return tcDispatchScope::Covers(*this);
}

// The answers that are more than data, by id.
struct tcVXCamera::tsHandlers {
    struct tsHandler {
        const tsAnswer* row;
        tpHandler handler;
    };
    static constexpr tsHandler saHandlers[] = {
        {&ansExposure, &tcVXCamera::OnExposure},
        {&ansHardware, &tcVXCamera::OnHardware},
        {&ansTargetTemp, &tcVXCamera::OnTargetTemp},
        {&ansBinMask, &tcVXCamera::OnBinMask},
        {&ansBinningSequence, &tcVXCamera::OnBinningSequence},
        {&ansFilter, &tcVXCamera::OnFilter},
        {&ansParameter, &tcVXCamera::OnParameter},
        {&ansLinkTest, &tcVXCamera::OnLinkTest},
        {&ansHeartBeat, &tcVXCamera::OnHeartBeat},
        {&ansCameraError, &tcVXCamera::OnCameraError},
        {&ansPixels16, &tcVXCamera::OnPixels16},
        {&ansPixels32, &tcVXCamera::OnPixels32},
        {&ansPixels8, &tcVXCamera::OnPixels8}};

    // Positions in saHandlers by message id, -1 for ids without a handler.
    static constexpr std::array<int8_t, gnFirstUserDefinedId> Index()
    {
        std::array<int8_t, gnFirstUserDefinedId> index{};
        for (int8_t& position : index) {
            position = -1;
        }
        int8_t position = 0;
        for (const tsHandler& handler : saHandlers) {
            index[handler.row->id] = position++;
        }
        return index;
    }

    // Every row that names a handler has one, and no other row has.
    static constexpr bool Match()
    {
        const auto index = Index();
        for (const tsAnswer* row : gaAnswers) {
            const bool wanted = row->delivery == eHandled || row->delivery == eEvent;
            if ((index[row->id] >= 0) != wanted) return false;
        }
        return true;
    }

    static tpHandler Of(const tsAnswer& row)
    {
        static constexpr auto saIndex = Index();
        return saHandlers[saIndex[row.id]].handler;
    }
};

bool tcVXCamera::DispatchCallbackParser(int status, void* message, int, unsigned, void* camera)
{
    constexpr int good = 0, badChecksum = -1;
    auto& self = *static_cast<tcVXCamera*>(camera);
    if (self.mbClosing) return true;
    tsStatistics& figures = self.mpLedger->Figures();
    const bool isDamaged = self.MessageSpansConnections();
    tcLedger::Add(status == good && !isDamaged ? figures.MessagesReceived : figures.MessagesBad);
    self.CountParsed();
    if (isDamaged) self.mLog.logError("CallBackParser the connection broke inside a message");
    const auto* frame = static_cast<const tsMsgHeader*>(message);
    const bool isOther = status == good && !IsPixels(frame->MsgId);
    if (!isDamaged) self.mpExtension->order.Note(*frame);
    if (isOther && !isDamaged) self.mpExtension->order.NoteKind(frame->MsgId);
    if (isOther) {
        self.TellTap(eTapMessagesReceived, frame, size_t{frame->Length} + gnHeaderBytes);
    }
    if (status == good || status == badChecksum) {
        self.CallBackParser(static_cast<tuCameraMessages*>(message), true, status != badChecksum);
    }
    return true;
}

void tcVXCamera::CallBackParser(tuCameraMessages* message, bool seqOk, bool checksumOk)
{
    const tsMsgHeader header = message->header;
    const unsigned id = header.MsgId;
    const unsigned seqNo = header.SeqNo;
    const unsigned checksum = header.Checksum;
    const unsigned version = header.IDD;
    mLog.logDebug(IsHighRate(id) ? 15 : 4,
                  "tcVXCamera::CallBackParser found msg id = %X, Seq_No = %d", id, seqNo);
    if (!seqOk) {
        mLog.logError("CallBackParser BAD SEQNO - ID = %X, Seq_No = %d, last_no = %d, "
                      "cksum = 0x%X, length=%d",
                      id, seqNo, mnLastSeqNo.load(), checksum, header.Length);
    }
    if (!checksumOk) {
        mLog.logError("CallBackParser BAD CHKSUM - ID = %d, Seq_No = %d, cksum = 0x%X, length=%d",
                      id, seqNo, checksum, header.Length);
        return;
    }
    if (version != gnInterfaceVersion) {
        mLog.logError("CallbackParser IDD Error - Received 0x%02X, Expected 0x%02X, "
                      "Dropping Message.",
                      version, gnInterfaceVersion);
        return;
    }

    tcDispatchScope scope(*this);
    Dispatch(*message, id);
    mnLastSeqNo.store(static_cast<uint8_t>(seqNo), std::memory_order_relaxed);
    if (!IsHighRate(id)) mLog.logDebug(1, "%s Done Handling Message %d", "CallBackParser", id);
}

void tcVXCamera::Dispatch(tuCameraMessages& message, uint32_t id)
{
    if (const tsAnswer* row = FindAnswer(id)) {
        Deliver(message, *row);
    } else if (id < gnFirstUserDefinedId) {
        mLog.logError("%s unknown message id received - 0x%X (%d)", "CallBackParser", id, id);
    } else if (tpUserDefinedCallback callback = mpUserDefinedCallback) {
        callback(mnHandle, &message, message.header.Length);
    }
}

void tcVXCamera::TellLink(teLinkEvent event, const char* words)
{
    TellTap(eTapLink, nullptr, 0, event);
    if (!mpExtension->linkCallback.IsSet()) return;
    tcDispatchScope scope(*this);
    const tsLinkRecord record{sizeof record, event, ThisMoment(), mpLedger->Read().ConnectionsLost,
                              words};
    mpExtension->linkCallback.Call(mnHandle, &record);
}

// Events lock what they need themselves and call back without it. For all others the common rule
// holds: if the row's item is pending, store the payload where its results point and count the
// answer; then mark the item as answered. A surplus answer is dropped.
void tcVXCamera::Deliver(tuCameraMessages& message, const tsAnswer& row)
{
    static_assert(tsHandlers::Match(), "handlers and rows belong together");
    if (row.delivery == eIgnored) return;
    if (row.delivery == eEvent) return (this->*tsHandlers::Of(row))(message, nullptr);

    std::lock_guard<std::recursive_mutex> lock(mStackMutex);
    tsRequestItem& item = maItems[row.item];
    tsRequestItem* pending = item.IsPending() ? &item : nullptr;
    if (row.delivery == eHandled) (this->*tsHandlers::Of(row))(message, pending);
    if (pending != nullptr) {
        if (item.result1 != nullptr) {
            if (row.delivery == eCopy) CopyOut(message, gnHeaderBytes, item.result1, row.bytes);
            if (row.delivery == eTwoWords) CopyOut(message, gnHeaderBytes, item.result1, 4);
            if (row.delivery == eWhole) {
                const size_t whole = message.header.Length + gnHeaderBytes;
                CopyOut(message, 0, item.result1, row.bytes != 0 ? row.bytes : whole);
            }
        }
        if (row.delivery == eTwoWords && item.result2 != nullptr) {
            CopyOut(message, gnHeaderBytes + 4, item.result2, 4);
        }
        if (row.status == eMarkAnswered) item.status = gnItemAnswered;
        ++item.respCount;
        if (item.IsPending()) return;
        item.result1 = item.result2 = nullptr;
        EndRequest(item);
    } else {
        tcLedger::Add(mpLedger->Figures().AnswersLate);
        if (row.status == eMarkAnswered) item.status = gnItemAnswered;
    }
}

void tcVXCamera::OnExposure(tuCameraMessages& message, tsRequestItem* item)
{
    const auto exposure = PayloadAt<uint32_t>(message, 0);
    mnExposure = exposure;
    if (item != nullptr && item->result1 != nullptr) memcpy(item->result1, &exposure, 4);
}

void tcVXCamera::OnHardware(tuCameraMessages& message, tsRequestItem* item)
{
    if (item == nullptr) return;
    CacheHardware(PayloadAt<TVXCameraHardware>(message, 0));
    mbShakingHands = false;
    auto* size = static_cast<int*>(item->result2);
    if (size == nullptr) return;
    *size = std::clamp(*size, 0, static_cast<int>(message.header.Length));
    if (item->result1 != nullptr) {
        CopyOut(message, gnHeaderBytes, item->result1, static_cast<size_t>(*size));
    }
}

void tcVXCamera::CacheHardware(const TVXCameraHardware& info)
{
    constexpr uint16_t unknown = 65535;
    mtHardware = info;
    mnRows = info.Rows;
    mnColumns = info.Columns;
    mbGeometryTold = true;
    mbGeometryKnown = info.Rows != unknown && info.Columns != unknown;
}

void tcVXCamera::OnTargetTemp(tuCameraMessages& message, tsRequestItem* item)
{
    if (item == nullptr || item->result1 == nullptr) return;
    const auto tenths = static_cast<float>(PayloadAt<int32_t>(message, 0));
    const auto degrees = static_cast<float>(tenths / 10.0);
    memcpy(item->result1, &degrees, sizeof degrees);
}

void tcVXCamera::OnBinMask(tuCameraMessages& message, tsRequestItem* item)
{
    if (item == nullptr) return;
    if (item->result1 != nullptr) {
        CopyOut(message, gnHeaderBytes, item->result1, gnHalfMaskRowBytes);
    }
    if (item->result2 != nullptr) {
        CopyOut(message, gnHeaderBytes + offsetof(tsBinMaskMsg, Argument), item->result2, 2);
    }
}

void tcVXCamera::OnBinningSequence(tuCameraMessages& message, tsRequestItem* item)
{
    if (item == nullptr || item->result1 == nullptr) return;
    const auto sequence = PayloadAt<tsBinningSequenceMsg>(message, 0);
    const auto* results = static_cast<const tsBinningSequenceResults*>(item->result1);
    if (results->vertical) memcpy(results->vertical, sequence.Vertical, gnSequenceEntries);
    if (results->horizontal) memcpy(results->horizontal, sequence.Horizontal, gnSequenceEntries);
    if (results->entries) *results->entries = sequence.Entries;
}

void tcVXCamera::OnFilter(tuCameraMessages& message, tsRequestItem* item)
{
    if (item == nullptr || item->result1 == nullptr) return;
    const auto filter = PayloadAt<tsFilterMsg>(message, 0);
    auto* result = static_cast<tsSetFilterCmd*>(item->result1);
    result->First = filter.First != 0;
    result->Second = filter.Second != 0;
}

// The size becomes what the operation returns: 0, the camera's status, or -5 for another length.
void tcVXCamera::OnParameter(tuCameraMessages& message, tsRequestItem* item)
{
    if (item == nullptr || item->result1 == nullptr || item->result2 == nullptr) return;
    constexpr int head = offsetof(tsParameterMsg, Value);
    auto* size = static_cast<int*>(item->result2);
    const auto status = PayloadAt<int32_t>(message, offsetof(tsParameterMsg, Status));
    if (status != 0) {
        *size = status;
    } else if (*size < 0 || *size != message.header.Length - head) {
        *size = eVXArgument;
    } else {
        CopyOut(message, gnHeaderBytes + head, item->result1, static_cast<size_t>(*size));
        *size = eVXOk;
    }
}

void tcVXCamera::OnLinkTest(tuCameraMessages& message, tsRequestItem* item)
{
    if (item == nullptr) {
        mLog.logError("%s rogue loopback message found, length = %d", "CallBackParser",
                      message.header.Length);
        return;
    }
    if (mpLinkTest == nullptr) return;
    const int carried = std::max(0, message.header.Length - gnLinkTestHeadBytes);
    const int room = std::max(0, static_cast<int32_t>(mpLinkTest->DataLength));
    if (mpLinkTest->ReceiveBuffer != nullptr) {
        memcpy(mpLinkTest->ReceiveBuffer, message.bytes + gnHeaderBytes + gnLinkTestHeadBytes,
               static_cast<size_t>(std::min(carried, room)));
    }
    ++mpLinkTest->AnswersReceived;
    mpLinkTest->ReceivedBytes += PayloadAt<uint16_t>(message, 0);
}

void tcVXCamera::OnHeartBeat(tuCameraMessages& message, tsRequestItem*)
{
    tcLedger::Add(mpLedger->Figures().HeartBeats);
    auto shortest = PayloadAt<tsHeartBeatData>(message, 0);
    mnCCDTemp = shortest.CCDTemp;
    mnBoardTemp = shortest.BoardTemp;
    if (const tpHeartBeatCallback callback = mpHeartBeatCallback) {
        const bool carriesAll = message.header.Length >= sizeof shortest;
        callback(mnHandle, carriesAll ? &message.HeartBeat.payload : &shortest);
    }
    TellHeartBeat(message);
}

void tcVXCamera::OnCameraError(tuCameraMessages& message, tsRequestItem*)
{
    tcLedger::Add(mpLedger->Figures().CameraErrors);
    const auto error = PayloadAt<tsCameraErrorMsg>(message, 0);
    char text[gnLargestMessage]; // no memory of which there might be none
    char* end = text;
    if (message.header.Length > sizeof error) {
        const auto* begin = message.bytes + gnHeaderBytes + sizeof error;
        const auto* last = message.bytes + gnHeaderBytes + message.header.Length;
        end = std::copy(begin, std::find(begin, last, 0), text);
    }
    *end = '\0';
    mLog.logError("VXCAMERA: %d-%d %s", error.Code, error.SubCode, text);
    if (tpErrorCallback callback = mpErrorCallback) {
        char copy[gnLargestMessage]; // is the callback's to write to
        memcpy(copy, text, static_cast<size_t>(end - text) + 1);
        callback(mnHandle, error.Code, error.SubCode, copy);
    }
    TellCameraError(error.Code, error.SubCode, text);
}
