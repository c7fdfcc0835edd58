// Frames go into a folder beside the one that was asked for, or beside the film, which is renamed or removed
// at the end. A frame is saved when the view has nothing more to refine.

#include "flightrecorder.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>
#include <system_error>

#include <QBuffer>
#include <QDir>
#include <QImage>
#include <QPainter>
#include <QStandardPaths>

#include "flightplayer.h"
#include "landscape/errors.h"
#include "landscapeview.h"

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/file.h>

namespace {

namespace fs = std::filesystem;

constexpr int s_frameMilliseconds = 5;
constexpr unsigned s_samples = 4;       ///< of each pixel, so that nothing shimmers
constexpr int s_longestFrame = 120'000; ///< in milliseconds
constexpr double s_usualRate = 25.0;    ///< pictures for each second
constexpr unsigned s_stripFrames = 9;
constexpr int s_stripWidth = 480, s_stripGap = 6; ///< of one frame, and around it, in pixels
constexpr int s_endMilliseconds = 2000;           ///< for the program to end when it is told to

} // namespace

FlightRecorder::FlightRecorder(LandscapeView & view) : QObject(&view), view_(view) {
    connect(&timer_, &QTimer::timeout, this, &FlightRecorder::look);
}

FlightRecorder::~FlightRecorder() {
    if (program_) program_->disconnect(this);
}

bool FlightRecorder::isFilm(const std::string & path) {
    const QString suffix = QString::fromStdString(NBX::File::extensionName(path)).toLower();
    return suffix == "mp4" || suffix == "mkv" || suffix == "mov" || suffix == "webm";
}

QString FlightRecorder::filmProgram() {
    return QStandardPaths::findExecutable("ffmpeg");
}

bool FlightRecorder::isStrip(const std::string & path) {
    return QString::fromStdString(NBX::File::extensionName(path)).toLower() == "png";
}

double FlightRecorder::rate(const Flight & flight, const std::string & path, unsigned frames) {
    if (frames == 0 && isStrip(path)) frames = s_stripFrames;
    if (frames == 0 || !(flight.duration() > 0.0)) return s_usualRate;
    return (frames > 1 ? frames - 1.0 : 0.5) / flight.duration();
}

void FlightRecorder::checkPath(const std::string & path) {
    if (isFilm(path) && filmProgram().isEmpty())
        throw DataError("films need the program ffmpeg, which is not installed; save pictures in a folder");
    std::error_code error;
    const bool isThere = fs::exists(path, error), isFolder = fs::is_directory(path, error);
    if (isThere && isFolder && (isFilm(path) || isStrip(path))) throw DataError(path + ": is a folder");
    if (!isFilm(path) && !isStrip(path) && isThere && !(isFolder && fs::is_empty(path, error)))
        throw DataError(path + ": is there already; pictures of a flight go into a folder of their own");
}

void FlightRecorder::start(const Flight & flight, const std::string & path, double framesPerSecond) {
    const double count = std::floor(flight.duration() * framesPerSecond + 1e-6) + 1.0;
    if (flight.empty() || !view_.landscape()) throw DataError("there is no flight to save");
    if (!(framesPerSecond > 0.0) || count > s_mostFrames)
        throw DataError("a flight has at most 99999 pictures; choose fewer for a second");
    if (isStrip(path) && count > s_mostStripFrames)
        throw DataError("one picture has at most 64 pictures of a flight; choose fewer for a second");
    checkPath(path);
    path_ = NBX::File::absolutePath(path);
    aside_ = std::make_unique<QTemporaryDir>(
        QString::fromStdString((fs::path(path_).parent_path() / ".flight-XXXXXX").string()));
    if (!aside_->isValid())
        throw DataError(path + ": cannot be written: " + aside_->errorString().toStdString());
    flight_ = flight;
    framesPerSecond_ = framesPerSecond;
    frames_ = int(count);
    frame_ = 0;
    size_ = view_.size();
    view_.setSamples(s_samples);
    showFrame();
    timer_.start(s_frameMilliseconds);
}

void FlightRecorder::cancel() {
    if (isRunning()) end(cancelled());
}

std::string FlightRecorder::frameName(int frame) const {
    return aside_->filePath(QString("frame_%1.png").arg(frame + 1, 5, 10, QChar('0'))).toStdString();
}

void FlightRecorder::showFrame() {
    waited_ = 0;
    emit progressed(frame_, frames_);
    FlightPlayer::show(view_, flight_.at(std::min(frame_ / framesPerSecond_, flight_.duration())), false);
}

void FlightRecorder::look() {
    waited_ += s_frameMilliseconds;
    if (!view_.landscape()) return end(tr("The landscape is gone"));
    if (view_.size() != size_) return end(tr("The window has got another size meanwhile"));
    if (view_.isComplete()) return saveFrame();
    if (waited_ > s_longestFrame) end(tr("The picture of frame %1 did not become complete").arg(frame_ + 1));
}

void FlightRecorder::saveFrame() {
    try {
        view_.savePicture(frameName(frame_));
    } catch (const std::exception & error) {
        return end(QString::fromStdString(messageOf(error)));
    }
    if (++frame_ < frames_) return showFrame();
    timer_.stop();
    emit progressed(frames_, frames_);
    finish();
}

void FlightRecorder::finish() {
    if (isFilm(path_)) return makeFilm();
    if (isStrip(path_)) return makeStrip();
    std::error_code error;
    fs::remove(path_, error); // an empty folder
    // Others may read it, other than what is temporary.
    fs::permissions(aside_->path().toStdString(), fs::perms(0755), error);
    fs::rename(aside_->path().toStdString(), path_, error);
    if (error) return end(QString::fromStdString(path_ + ": cannot be written: " + error.message()));
    aside_->setAutoRemove(false);
    end({});
}

/// In rows of as many frames as there are rows, or one more.
void FlightRecorder::makeStrip() {
    const int columns = int(std::ceil(std::sqrt(double(frames_)))), rows = (frames_ + columns - 1) / columns;
    const QSize cell = QSize(s_stripWidth, s_stripWidth * size_.height() / std::max(size_.width(), 1));
    QImage strip(columns * (cell.width() + s_stripGap) + s_stripGap,
                 rows * (cell.height() + s_stripGap) + s_stripGap, QImage::Format_RGB32);
    strip.fill(Qt::black);
    QPainter painter(&strip);
    for (int frame = 0; frame < frames_; ++frame) {
        const QPoint corner(frame % columns * (cell.width() + s_stripGap) + s_stripGap,
                            frame / columns * (cell.height() + s_stripGap) + s_stripGap);
        const QImage picture(QString::fromStdString(frameName(frame)));
        painter.drawImage(corner, picture.scaled(cell, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
    }
    painter.end();
    try {
        QBuffer bytes;
        if (!strip.save(&bytes, "PNG")) throw DataError(path_ + ": the picture could not be encoded");
        NBX::AtomicFileWriter out(path_);
        out.write(bytes.data().constData(), std::uint64_t(bytes.data().size()));
        out.commit();
    } catch (const std::exception & error) {
        return end(QString::fromStdString(messageOf(error)));
    }
    end({});
}

void FlightRecorder::makeFilm() {
    isFilming_ = true;
    program_ = std::make_unique<QProcess>();
    program_->setProcessChannelMode(QProcess::MergedChannels);
    connect(program_.get(), &QProcess::finished, this, &FlightRecorder::takeFilm);
    // One that does not start does not finish.
    connect(program_.get(), &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            end(tr("ffmpeg cannot be started: %1").arg(program_->errorString()));
    });
    const QString film = aside_->filePath("film." + QString::fromStdString(NBX::File::extensionName(path_)));
    // Players want even sides, and colours with half of the resolution.
    program_->start(filmProgram(), {"-y", "-v", "error", "-framerate", QString::number(framesPerSecond_),
                                    "-i", aside_->filePath("frame_%05d.png"), "-vf",
                                    "crop=trunc(iw/2)*2:trunc(ih/2)*2", "-pix_fmt", "yuv420p", film});
}

void FlightRecorder::takeFilm() {
    const bool isMade = program_->exitStatus() == QProcess::NormalExit && program_->exitCode() == 0;
    const QString words = QString::fromUtf8(program_->readAll()).trimmed().section('\n', -1);
    if (!isMade) return end(tr("ffmpeg has made no film: %1").arg(words));
    std::error_code error;
    const std::string film = aside_->filePath("film.").toStdString() + NBX::File::extensionName(path_);
    fs::rename(film, path_, error);
    end(error ? QString::fromStdString(path_ + ": cannot be written: " + error.message()) : QString());
}

void FlightRecorder::end(const QString & problem) {
    timer_.stop();
    view_.setSamples(1);
    isFilming_ = false;
    if (program_) {
        program_->disconnect(this);
        program_->kill();
        program_->waitForFinished(s_endMilliseconds);
        program_.release()->deleteLater();
    }
    aside_.reset();
    emit ended(problem);
}
