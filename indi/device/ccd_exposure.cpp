// Exposures and streams.
#include "ccd_device.h"

#include "main_loop.h"
#include "message_text.h"

#include <vxcamkit/error.h>

#include <libastro.h>

#include <cmath>
#include <ctime>

namespace vxcam {

namespace {

constexpr double kShortest = 0.001;             // s; cameras count in milliseconds
constexpr int kMostFrames = 32767;              // of a readout
constexpr size_t kLeastSpace = size_t{8} << 20; // of the disk that is recorded to

FrameType typeOf(INDI::CCDChip::CCD_FRAME type)
{
    switch (type) {
    case INDI::CCDChip::BIAS_FRAME:
        return FrameType::Bias;
    case INDI::CCDChip::DARK_FRAME:
        return FrameType::Dark;
    case INDI::CCDChip::FLAT_FRAME:
        return FrameType::Flat;
    case INDI::CCDChip::LIGHT_FRAME:
        break;
    }
    return FrameType::Light;
}

const char* nameInIndi(FrameType type)
{
    switch (type) {
    case FrameType::Bias:
        return "Bias";
    case FrameType::Dark:
        return "Dark";
    case FrameType::Flat:
        return "Flat";
    case FrameType::Light:
        break;
    }
    return "Light";
}

// Of a frame, as far as the plan says it; else 0.
size_t bytesOf(const Plan& plan, const Size& sensor)
{
    size_t pixels = 0;
    if (plan.area) {
        pixels = size_t(plan.area->columns) * size_t(plan.area->rows);
    } else if (plan.binningX && plan.binningY) {
        pixels = size_t(sensor.columns / *plan.binningX) * size_t(sensor.rows / *plan.binningY);
    }
    return pixels * size_t(plan.bits) / 8;
}

double secondsNow()
{
    return static_cast<double>(std::time(nullptr));
}

} // namespace

// As the properties say. Bins are of the whole sensor; whether the frame is, expose() looks.
Plan CcdDevice::planOf(double seconds) const
{
    Plan plan;
    plan.kind = ReadoutKind::Area;
    plan.type = typeOf(PrimaryCCD.getFrameType());
    plan.exposure = std::chrono::milliseconds(std::llround(seconds * 1000));
    if (plan.type == FrameType::Bias) plan.exposure = std::chrono::milliseconds(0);
    plan.mode = static_cast<int>(flagsNP_[0].getValue());
    const int format = CaptureFormatSP.findOnSwitchIndex();
    plan.bits = format == 1 ? 8 : 16;
    const ReadoutMode mode = readoutMode();
    const bool isBinned = PrimaryCCD.getBinX() > 1 || PrimaryCCD.getBinY() > 1;
    if (mode == ReadoutMode::Standard && !isBinned) {
        plan.area = Area{PrimaryCCD.getSubX(), PrimaryCCD.getSubY(), PrimaryCCD.getSubW(),
                         PrimaryCCD.getSubH()};
    } else if (mode == ReadoutMode::BinMask) {
        plan.kind = ReadoutKind::MaskBinned;
    } else if (mode != ReadoutMode::Regions) {
        plan.kind = ReadoutKind::Binned;
    }
    if (mode == ReadoutMode::Standard && isBinned) {
        plan.binningX = PrimaryCCD.getBinX();
        plan.binningY = PrimaryCCD.getBinY();
    }
    if (plan.kind != ReadoutKind::Area) plan.bits = 32;
    return plan;
}

void CcdDevice::expose(double seconds)
{
    const auto refuseIf = [](bool isBad, const char* why) {
        if (isBad) throw Error(ErrorKind::Usage, why);
    };
    refuseIf(isStream_, "A stream runs; stop it first.");
    const Area whole{0, 0, sensor().columns, sensor().rows};
    const Area frame{PrimaryCCD.getSubX(), PrimaryCCD.getSubY(), PrimaryCCD.getSubW(),
                     PrimaryCCD.getSubH()};
    ExposureJob job;
    job.plan = planOf(seconds);
    refuseIf(job.plan.type != FrameType::Bias && seconds < kShortest,
             "The shortest exposure is 0.001 s.");
    refuseIf(job.plan.binningX && frame != whole,
             "The camera bins the whole sensor; set the frame to all of it, or the binning to 1.");
    const bool isFast = FastExposureToggleS[INDI_ENABLED].s == ISS_ON;
    const double count = isFast ? std::max(FastExposureCountN[0].value, 1.0) : 1;
    refuseIf(count > kMostFrames, "A fast exposure has 32767 frames at most.");
    job.plan.frames = static_cast<int>(count);
    if (runner_.isRunning()) AbortExposure();

    PrimaryCCD.setExposureDuration(seconds);
    publishCards();
    job.camera = session_.camera();
    job.prepare = [options = sendOptions(), bytes = bytesOf(job.plan, sensor())] {
        ImageSender::requireRoom(options, bytes);
    };
    job.take = [this, options = sendOptions()](const Frame& taken) {
        const std::string path = sender_.send(taken, options, getBLOB("CCD1"));
        if (!path.empty()) onMainLoop([this, path] { showPath(path); });
    };
    job.left = [this](double left) { PrimaryCCD.setExposureLeft(left); };
    job.taken = [this] { frameTaken(); };
    job.done = [this] { exposureDone(); };
    job.failed = [this](const Error& error) { exposureFailed(error); };
    if (isFast) fastCount(count, IPS_BUSY);
    PrimaryCCD.setExposureLeft(seconds);
    runner_.start(std::move(job));
}

SendOptions CcdDevice::sendOptions() const
{
    SendOptions options;
    options.toClient = UploadS[UPLOAD_LOCAL].s != ISS_ON;
    options.toFile = UploadS[UPLOAD_CLIENT].s != ISS_ON;
    options.isFits = EncodeFormatSP[FORMAT_FITS].getState() == ISS_ON;
    options.isPacked = PrimaryCCD.isCompressed();
    options.folder = UploadSettingsT[UPLOAD_DIR].text;
    options.prefix = UploadSettingsT[UPLOAD_PREFIX].text;
    return options;
}

void CcdDevice::showPath(const std::string& path)
{
    IUSaveText(&FileNameT[0], path.c_str());
    FileNameTP.s = IPS_OK;
    IDSetText(&FileNameTP, "Image saved to %s", path.c_str());
}

void CcdDevice::fastCount(double frames, IPState state)
{
    FastExposureCountN[0].value = frames;
    FastExposureCountNP.s = state;
    IDSetNumber(&FastExposureCountNP, nullptr);
}

// One of several: the next one is under way.
void CcdDevice::frameTaken()
{
    if (FastExposureToggleS[INDI_ENABLED].s != ISS_ON || FastExposureCountN[0].value <= 1) return;
    PrimaryCCD.setExposureComplete();
    fastCount(FastExposureCountN[0].value - 1, IPS_BUSY);
    PrimaryCCD.setExposureLeft(PrimaryCCD.getExposureDuration());
}

void CcdDevice::exposureDone()
{
    PrimaryCCD.setExposureComplete();
    if (FastExposureCountNP.s == IPS_BUSY) fastCount(1, IPS_IDLE);
    askStates();
}

void CcdDevice::exposureFailed(const Error& error)
{
    INDI::PropertyNumber exposure = getNumber("CCD_EXPOSURE");
    exposure[0].setValue(0);
    const bool isAborted = error.kind() == ErrorKind::Aborted;
    exposure.setState(isAborted ? IPS_IDLE : IPS_ALERT);
    exposure.apply("%s", messageText(error.what()).c_str());
    if (FastExposureCountNP.s == IPS_BUSY) fastCount(1, isAborted ? IPS_IDLE : IPS_ALERT);
}

bool CcdDevice::AbortExposure()
{
    if (isStream_) return true;
    runner_.cancel();
    INDI::PropertyNumber exposure = getNumber("CCD_EXPOSURE");
    exposure[0].setValue(0);
    exposure.setState(IPS_IDLE);
    exposure.apply();
    if (FastExposureCountNP.s == IPS_BUSY) fastCount(1, IPS_IDLE);
    return true;
}

// ---- Streams ------------------------------------------------------------------------------------

bool CcdDevice::StartStreaming()
{
    ExposureJob job;
    job.plan = planOf(Streamer->getTargetExposure());
    const char* trouble = !isLinkUp()                             ? "The camera is not connected."
                          : runner_.isRunning()                   ? "An exposure runs."
                          : job.plan.kind != ReadoutKind::Area    ? "Bins cannot be streamed."
                          : readoutMode() == ReadoutMode::Regions ? "Regions cannot be streamed."
                                                                  : nullptr;
    if (trouble != nullptr) {
        LOGF_ERROR("%s", trouble);
        return false;
    }
    job.plan.frames = 0;
    job.plan.whenFull = WhenFull::DropNewest;
    job.camera = session_.camera();
    noteRecordFolder();
    job.take = [this](const Frame& frame) {
        if (Streamer->isRecording()) requireRecordSpace(frame.bytes());
        Streamer->newFrame(static_cast<const uint8_t*>(frame.data()),
                           static_cast<uint32_t>(frame.bytes()));
    };
    framesSkipped_ = 0;
    job.skip = [this](const Frame& frame) {
        const std::string why = IncompleteFrame(frame).what();
        onMainLoop([this, why] {
            ++framesSkipped_;
            LOGF_WARN("Left out of the stream: %s", why.c_str());
        });
    };
    job.done = [this] { streamEnded(Error(ErrorKind::Aborted, "The stream has ended.")); };
    job.failed = [this](const Error& error) { streamEnded(error); };
    isStream_ = true;
    runner_.start(std::move(job));
    return true;
}

void CcdDevice::noteRecordFolder()
{
    const INDI::PropertyText file = getText("RECORD_FILE");
    std::lock_guard<std::mutex> guard(recordLock_);
    recordFolder_ = file.isValid() ? file.findWidgetByName("RECORD_FILE_DIR")->getText() : "";
}

// INDI's recorders do not look whether what they write arrives. Some frames may be on their way.
void CcdDevice::requireRecordSpace(size_t bytes) const
{
    std::lock_guard<std::mutex> guard(recordLock_);
    if (!recordFolder_.empty()) requireSpace(recordFolder_, std::max(kLeastSpace, 8 * bytes));
}

// Also called on the thread of the frames, when a recording is long enough.
bool CcdDevice::StopStreaming()
{
    runner_.cancel();
    isStream_ = false;
    return true;
}

void CcdDevice::streamEnded(const Error& error)
{
    isStream_ = false;
    const std::string device = getDeviceName();
    ISState on = ISS_ON;
    char element[] = "RECORD_OFF";
    char* names[] = {element};
    if (Streamer->isRecording()) {
        Streamer->ISNewSwitch(device.c_str(), "RECORD_STREAM", &on, names, 1);
        Streamer->newFrame(nullptr, 0); // its file is closed with the next frame, whatever that is
    }
    Streamer->setStream(false);
    for (const char* name : {"CCD_VIDEO_STREAM", "RECORD_STREAM"}) {
        INDI::PropertySwitch property = getSwitch(name);
        property.setState(IPS_ALERT);
        property.apply("%s", messageText(error.what()).c_str());
    }
}

// ---- The observatory ----------------------------------------------------------------------------

void CcdDevice::publishCards()
{
    sender_.setCards(cardsOf(observation(), secondsNow()));
}

Observation CcdDevice::observation() const
{
    const auto known = [](double value, double otherwise) { return value > 0 ? value : otherwise; };
    const auto textOf = [](const IText& text) {
        const std::string told = text.text == nullptr ? "" : text.text;
        return told == "Unknown" ? "" : told; // as INDI has it at first
    };
    Observation facts;
    const FrameType type = typeOf(PrimaryCCD.getFrameType());
    facts.frame = nameInIndi(type);
    facts.isSky = type == FrameType::Light;
    facts.observer = textOf(FITSHeaderT[FITS_OBSERVER]);
    facts.object = textOf(FITSHeaderT[FITS_OBJECT]);
    if (CurrentFilterSlot > 0 && CurrentFilterSlot <= static_cast<int>(FilterNames.size())) {
        facts.filter = FilterNames[static_cast<size_t>(CurrentFilterSlot) - 1];
    }
    facts.focalLength = known(ScopeInfoNP[FocalLength].getValue(), snoopedFocalLength);
    facts.aperture = known(ScopeInfoNP[Aperture].getValue(), snoopedAperture);
    facts.pixelX = PrimaryCCD.getPixelSizeX();
    facts.pixelY = PrimaryCCD.getPixelSizeY();
    facts.binningX = PrimaryCCD.getBinX();
    facts.binningY = PrimaryCCD.getBinY();
    facts.skyQuality = MPSAS;
    facts.rotator = RotatorAngle;
    if (FocuserPos != -1) facts.focusPosition = static_cast<double>(FocuserPos);
    facts.focusTemperature = FocuserTemp;
    facts.pierSide = pierSide;
    if (!std::isnan(RA) || J2000Valid) facts.telescope = textOf(ActiveDeviceT[ACTIVE_TELESCOPE]);
    facts.latitude = Latitude;
    facts.longitude = Longitude;
    facts.rightAscension = J2000RA;
    facts.declination = J2000DE;
    if (J2000Valid || std::isnan(RA) || std::isnan(Dec)) return facts;
    INDI::IEquatorialCoordinates date{RA, Dec}, old{0, 0};
    INDI::ObservedToJ2000(&date, 2440587.5 + secondsNow() / 86400, &old);
    facts.rightAscension = old.rightascension;
    facts.declination = old.declination;
    return facts;
}

} // namespace vxcam
