// The player has the time: slider, keys and its clock move it, and `follow` shows what it has become. The
// gaps of a track are told by the line below the slider.

#include "trackbar.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <QAction>
#include <QComboBox>
#include <QDateTime>
#include <QEvent>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyle>
#include <QTimeZone>

namespace {

using ZMT::CORE::TrackPlayer;
using ZMT::CORE::VectorTrack;

constexpr int s_trackPositions = 10'000;
constexpr double s_usualSeconds = 60.0; ///< in which all is played
constexpr std::array s_speeds = {1, 2, 5, 10, 30, 60, 120, 300, 600, 1800, 3600, 7200, 36'000};

/// A slider over the time of a track, with a line below it where the track has a place.
class TimeSlider : public QSlider {
public:
    TimeSlider() : QSlider(Qt::Horizontal) {}

    void setTrack(const VectorTrack * track) {
        track_ = track;
        update();
    }

protected:
    void paintEvent(QPaintEvent * event) override {
        QSlider::paintEvent(event);
        if (!track_ || track_->end() <= track_->start()) return;
        QPainter painter(this);
        const int margin = style()->pixelMetric(QStyle::PM_SliderLength, nullptr, this) / 2;
        const double room = width() - 2.0 * margin;
        const auto column = [&](double time) {
            return margin + room * (time - track_->start()) / (track_->end() - track_->start());
        };
        for (const VectorTrack::Span & span : track_->spans())
            painter.fillRect(QRectF(column(span.begin), height() - 3.0,
                                    std::max(1.0, column(span.end) - column(span.begin)), 3.0),
                             QColor(0xe0, 0x20, 0x20));
    }

private:
    const VectorTrack * track_ = nullptr;
};

} // namespace

TrackBar::TrackBar(QWidget * parent)
    : QToolBar(tr("Track"), parent), slider_(new TimeSlider), time_(new QLabel), speed_(new QComboBox) {
    setObjectName("tracks");
    setMovable(false);
    toggleViewAction()->setVisible(false);
    play_ = addAction(tr("Play"), this, &TrackBar::togglePlay);
    addWidget(slider_);
    addWidget(time_);
    addWidget(speed_);
    slider_->setObjectName("trackTime");
    slider_->setRange(0, s_trackPositions);
    slider_->setPageStep(s_trackPositions / 20);
    // A click must not take the keys away from the picture.
    for (QWidget * part : {static_cast<QWidget *>(slider_), static_cast<QWidget *>(speed_)})
        part->setFocusPolicy(Qt::TabFocus);
    slider_->setToolTip(tr("Time: J earlier, K later, Home and End"));
    time_->setObjectName("trackTimeText");
    time_->setContentsMargins(8, 0, 8, 0);
    speed_->setObjectName("trackSpeed");
    speed_->setToolTip(tr("Seconds of the track in one second: comma slower, period faster"));
    for (const int speed : s_speeds)
        speed_->addItem(tr("%1 ×").arg(speed), speed);
    connect(slider_, &QSlider::valueChanged, this, [this](int position) {
        if (player_) setTime(player_->track()->start() + length_ * position / s_trackPositions);
    });
    connect(speed_, &QComboBox::currentIndexChanged, this, [this] {
        if (player_) player_->setSpeed(speed_->currentData().toDouble());
    });
    setTracks(nullptr);
}

TrackBar::~TrackBar() {
    setTracks(nullptr);
}

void TrackBar::setTracks(Tracks * tracks) {
    if (player_) {
        player_->setObserver({});
        player_->pause();
    }
    player_ = nullptr;
    tracks_ = tracks && !tracks->empty() ? tracks : nullptr;
    setVisible(tracks_ != nullptr);
    auto * slider = static_cast<TimeSlider *>(slider_);
    slider->setTrack(tracks_ ? tracks_->all().get() : nullptr);
    if (!tracks_) return;
    const double length = tracks_->end() - tracks_->start();
    if (length != length_) {
        const auto * speed = std::find_if(s_speeds.begin(), s_speeds.end() - 1,
                                          [&](int one) { return one * s_usualSeconds >= length; });
        speed_->setCurrentIndex(int(speed - s_speeds.begin()));
    }
    length_ = length;
    player_ = new TrackPlayer(tracks_->all());
    player_->setSpeed(speed_->currentData().toDouble());
    player_->seek(tracks_->time());
    player_->setObserver([this] { follow(); });
    follow();
}

void TrackBar::togglePlay() {
    if (player_ && !player_->isPlaying())
        player_->play();
    else
        pause();
}

void TrackBar::pause() {
    if (player_ && player_->isPlaying()) player_->pause();
}

void TrackBar::changeSpeed(int steps) {
    speed_->setCurrentIndex(std::clamp(speed_->currentIndex() + steps, 0, speed_->count() - 1));
}

void TrackBar::move(int hundredths) {
    if (player_) setTime(player_->time() + length_ * hundredths / 100.0);
}

void TrackBar::setTime(double time) {
    player_->seek(time);
}

/// In the colour of text, since those of the style are black.
void TrackBar::showPlaying() {
    if (!player_) return;
    const auto sign = player_->isPlaying() ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay;
    const int side = style()->pixelMetric(QStyle::PM_ToolBarIconSize);
    QPixmap pixmap = style()->standardIcon(sign).pixmap(QSize(side, side), devicePixelRatioF());
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(QRect(QPoint(), pixmap.deviceIndependentSize().toSize()),
                     palette().color(QPalette::ButtonText));
    painter.end();
    play_->setIcon(pixmap);
}

void TrackBar::changeEvent(QEvent * event) {
    if (event->type() == QEvent::PaletteChange) showPlaying();
    QToolBar::changeEvent(event);
}

/// Of the player, whatever moved it.
void TrackBar::follow() {
    play_->setText(player_->isPlaying() ? tr("Pause") : tr("Play"));
    showPlaying();
    const double share = length_ > 0.0 ? (player_->time() - player_->track()->start()) / length_ : 0.0;
    const QSignalBlocker blocker(slider_);
    slider_->setValue(int(std::lround(share * s_trackPositions)));
    time_->setText(timeText());
    if (tracks_->time() == player_->time()) return;
    tracks_->setTime(player_->time());
    emit moved();
}

QString TrackBar::timeText() const {
    const auto time = QDateTime::fromMSecsSinceEpoch(qint64(std::llround(player_->time() * 1000.0)), Qt::UTC);
    const QString text = time.toString("yyyy-MM-dd HH:mm:ss") + tr(" UTC");
    return player_->place() ? text : text + tr(", nobody knows where");
}
