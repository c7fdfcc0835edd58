#pragma once

#include <memory>
#include <string>

#include <QObject>
#include <QProcess>
#include <QSize>
#include <QTemporaryDir>
#include <QTimer>

#include "scene/flight.h"

class LandscapeView;

/// Saves a flight as pictures of the size of the view, each of which is complete: as numbered files in a
/// folder of their own, "frame_00001.png" and so on, as a film, which the program ffmpeg makes of them, or as
/// one picture that has them side by side. Works while the window goes on; what is saved appears when all of
/// it is there.
class FlightRecorder : public QObject {
    Q_OBJECT
public:
    explicit FlightRecorder(LandscapeView & view);
    ~FlightRecorder() override;

    /// Whether the name is that of a film, by its suffix: mp4, mkv, mov or webm.
    static bool isFilm(const std::string & path);
    /// Whether it is that of one picture with all frames, png.
    static bool isStrip(const std::string & path);
    /// The program that makes films; empty where it is not installed.
    static QString filmProgram();

    static constexpr unsigned s_mostFrames = 99'999, s_mostStripFrames = 64;
    /// The pictures for each second that show `frames` of them, from the start of a flight to its end; those
    /// that `path` usually gets for 0.
    static double rate(const Flight & flight, const std::string & path, unsigned frames = 0);
    /// Throws `DataError` where `start` would for that reason.
    static void checkPath(const std::string & path);

    /// `path` is the name of a film or of one picture, or else that of a folder, which must be empty or
    /// missing. Throws `DataError`, and nothing has begun then. Nothing else is being recorded.
    void start(const Flight & flight, const std::string & path, double framesPerSecond);
    /// Leaves nothing, and ends with the problem `cancelled()`.
    void cancel();
    static QString cancelled() { return tr("Cancelled"); }
    bool isRunning() const { return timer_.isActive() || isFilming_; }

signals:
    void progressed(int done, int all);
    /// `problem` is empty for one that was saved.
    void ended(const QString & problem);

private:
    void look();
    void showFrame();
    void saveFrame();
    void finish();
    void makeStrip();
    void makeFilm();
    void takeFilm();
    void end(const QString & problem);
    std::string frameName(int frame) const;

    LandscapeView & view_;
    Flight flight_;
    std::string path_;
    double framesPerSecond_ = 0.0;
    int frame_ = 0, frames_ = 0; ///< the one that is shown, counted from 0, and how many
    int waited_ = 0;             ///< for this frame, in milliseconds
    QSize size_;                 ///< of the view
    std::unique_ptr<QTemporaryDir> aside_;
    std::unique_ptr<QProcess> program_;
    bool isFilming_ = false;
    QTimer timer_;
};
