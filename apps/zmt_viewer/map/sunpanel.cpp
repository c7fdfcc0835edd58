// What stands in the fields is the moment; the slider moves the time within the day. A zone that is chosen
// leaves the clock as it stands.

#include "sunpanel.h"

#include <cmath>

#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QLocale>
#include <QSignalBlocker>
#include <QSlider>

#include <zmt/util/solarposition.h>

namespace {

constexpr int s_minutesOfDay = 24 * 60;
/// All that are in use, in minutes.
constexpr int s_zones[] = {-720, -660, -600, -570, -540, -480, -420, -360, -300, -240, -210, -180, -120,
                           -60,  0,    60,   120,  180,  210,  240,  270,  300,  330,  345,  360,  390,
                           420,  480,  525,  540,  570,  600,  630,  660,  720,  765,  780,  825,  840};

QDoubleSpinBox * makeDegrees(double most, const char * name) {
    auto * degrees = new QDoubleSpinBox;
    degrees->setObjectName(name);
    degrees->setLocale(QLocale::c());
    degrees->setRange(-most, most);
    degrees->setDecimals(4);
    degrees->setSuffix(QObject::tr("°"));
    return degrees;
}

QString degreesText(double degrees) {
    return QObject::tr("%1°").arg(QLocale::c().toString(degrees, 'f', 1));
}

} // namespace

SunPanel::SunPanel(QWidget * parent)
    : QWidget(parent), isOn_(new QCheckBox(tr("Light of the sun"))), date_(new QDateEdit),
      time_(new QTimeEdit), day_(new QSlider(Qt::Horizontal)), zone_(new QComboBox),
      longitude_(makeDegrees(180.0, "sunLongitude")), latitude_(makeDegrees(90.0, "sunLatitude")),
      position_(new QLabel), problem_(new QLabel) {
    auto * rows = new QFormLayout(this);
    rows->addRow(isOn_);
    rows->addRow(tr("Date"), date_);
    rows->addRow(tr("Time"), time_);
    rows->addRow(day_);
    rows->addRow(tr("Time zone"), zone_);
    rows->addRow(tr("Longitude"), longitude_);
    rows->addRow(tr("Latitude"), latitude_);
    rows->addRow(position_);
    rows->addRow(problem_);
    isOn_->setObjectName("sunOn");
    date_->setObjectName("sunDate");
    date_->setDisplayFormat("yyyy-MM-dd");
    date_->setCalendarPopup(true);
    time_->setObjectName("sunTime");
    time_->setDisplayFormat("HH:mm");
    time_->setWrapping(true);
    day_->setObjectName("sunDay");
    day_->setRange(0, s_minutesOfDay - 1);
    day_->setPageStep(60);
    zone_->setObjectName("sunZone");
    for (const int minutes : s_zones)
        zone_->addItem(zoneName(minutes), minutes);
    position_->setObjectName("sunPosition");
    position_->setWordWrap(true);
    problem_->setObjectName("sunProblem");
    problem_->setWordWrap(true);
    problem_->setProperty("isProblem", true);
    problem_->hide();
    connect(isOn_, &QCheckBox::toggled, this, &SunPanel::take);
    connect(date_, &QDateEdit::dateChanged, this, &SunPanel::take);
    connect(time_, &QTimeEdit::timeChanged, this, &SunPanel::take);
    connect(zone_, &QComboBox::currentIndexChanged, this, &SunPanel::take);
    for (QDoubleSpinBox * degrees : {longitude_, latitude_})
        connect(degrees, &QDoubleSpinBox::valueChanged, this, &SunPanel::take);
    connect(day_, &QSlider::valueChanged, this,
            [this](int minute) { time_->setTime(QTime(minute / 60, minute % 60)); });
    setFocusProxy(isOn_);
    setClock({});
}

int SunPanel::usualZone(double longitude) {
    return int(std::lround(longitude / 15.0)) * 60;
}

QString SunPanel::zoneName(int minutes) {
    const int size = std::abs(minutes);
    return QString("UTC%1%2:%3")
        .arg(minutes < 0 ? "-" : "+")
        .arg(size / 60, 2, 10, QChar('0'))
        .arg(size % 60, 2, 10, QChar('0'));
}

void SunPanel::setMoment(const std::optional<SunMoment> & moment) {
    isShowing_ = true;
    isOn_->setChecked(moment.has_value());
    if (moment) show(*moment);
    isShowing_ = false;
    showSun();
}

void SunPanel::setClock(const SunMoment & moment) {
    isShowing_ = true;
    show(moment);
    isShowing_ = false;
    showSun();
}

void SunPanel::show(const SunMoment & moment) {
    if (zone_->findData(moment.zone) < 0) zone_->addItem(zoneName(moment.zone), moment.zone);
    zone_->setCurrentIndex(zone_->findData(moment.zone));
    const auto minute = qint64(std::floor(moment.time / 60.0)) + moment.zone;
    const QDateTime clock = QDateTime::fromSecsSinceEpoch(minute * 60, Qt::UTC);
    date_->setDate(clock.date());
    time_->setTime(clock.time());
    longitude_->setValue(moment.longitude);
    latitude_->setValue(moment.latitude);
}

SunMoment SunPanel::shown() const {
    const int zone = zone_->currentData().toInt();
    const QDateTime clock(date_->date(), time_->time(), Qt::UTC);
    return {double(clock.toSecsSinceEpoch()) - zone * 60.0, zone, longitude_->value(), latitude_->value()};
}

std::optional<SunMoment> SunPanel::moment() const {
    return isOn_->isChecked() ? std::optional(shown()) : std::nullopt;
}

void SunPanel::setProblem(const QString & problem) {
    problem_->setText(problem);
    problem_->setVisible(!problem.isEmpty());
    isOn_->setEnabled(problem.isEmpty());
}

void SunPanel::toggle() {
    if (isOn_->isEnabled()) isOn_->toggle();
}

void SunPanel::take() {
    if (isShowing_) return;
    showSun();
    emit changed();
}

void SunPanel::showSun() {
    const QSignalBlocker quiet(day_);
    day_->setValue(time_->time().hour() * 60 + time_->time().minute());
    const SunMoment moment = shown();
    const auto sun = ZMT::UTIL::SolarPosition::at(moment.time, moment.longitude, moment.latitude);
    position_->setText(sun.apparentElevation > 0.0
                           ? tr("The sun stands %1 above the horizon, at azimuth %2")
                                 .arg(degreesText(sun.apparentElevation), degreesText(sun.azimuth))
                           : tr("The sun is %1 below the horizon: the ground has the light of the sky alone")
                                 .arg(degreesText(-sun.apparentElevation)));
}
