#include "KestruneDock/ScreenTimeWidgets/ScreenTimeWidget.h"

#include <cmath>

#include <QDate>
#include <QFormLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QVBoxLayout>

#include "KestruneDock/ScreenTimeWidgets/ScreenTimeCenter.h"

namespace kestrune {

QString ScreenTimeWidget::durationText(double seconds)
{
    auto minutes = static_cast<long>(std::floor(seconds / 60));
    if (minutes < 1)
        return QStringLiteral("Under a minute");
    if (minutes < 60)
        return QStringLiteral("%1 min").arg(minutes);
    return QStringLiteral("%1 h %2 min").arg(minutes / 60).arg(minutes % 60);
}

ScreenTimeWidget::ScreenTimeWidget(WidgetInstance instance, WidgetMonitors& monitors) : LinesTile(std::move(instance), 4), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::screenTime, [this] { tellChanged(); });
    monitors_.screenTime().setCounting(instance_.id.toString(), true);
}

ScreenTimeWidget::~ScreenTimeWidget()
{
    monitors_.removeObserver(WidgetMonitors::Source::screenTime, watch_);
    monitors_.screenTime().setCounting(instance_.id.toString(), false);
}

WidgetLines ScreenTimeWidget::lines() const
{
    const ScreenTimeCenter::Summary& summary = monitors_.screenTime().summary();
    if (!summary.failure.empty())
        return { QStringLiteral("Screen Time"), QStringLiteral("Not recorded"), stateColour::trouble() };
    return { QStringLiteral("Screen Time today"), summary.todayTotal > 0 ? durationText(summary.todayTotal) : QStringLiteral("Nothing yet"), {} };
}

QWidget* ScreenTimeWidget::makeCard()
{
    const ScreenTimeCenter::Summary& summary = monitors_.screenTime().summary();
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    if (!summary.failure.empty()) {
        auto* failure = new QLabel(QString::fromStdString(summary.failure));
        failure->setWordWrap(true);
        layout->addWidget(failure);
    }
    auto* today = new QLabel(QStringLiteral("Today"));
    QFont bold = today->font();
    bold.setBold(true);
    today->setFont(bold);
    layout->addWidget(today);
    auto* apps = new QFormLayout;
    if (summary.today.empty())
        apps->addRow(new QLabel(QStringLiteral("No app has been used yet today")));
    for (const auto& [app, seconds] : summary.today) {
        auto* time = new QLabel(durationText(seconds));
        time->setAccessibleName(QString::fromStdString(app));
        apps->addRow(QString::fromStdString(app), time);
    }
    layout->addLayout(apps);
    auto* week = new QLabel(QStringLiteral("The last seven days"));
    week->setFont(bold);
    layout->addWidget(week);
    auto* days = new QFormLayout;
    double most = 1;
    for (const auto& entry : summary.week)
        most = std::max(most, entry.second);
    for (const auto& [day, seconds] : summary.week) {
        auto* bar = new QProgressBar;
        bar->setRange(0, 1000);
        bar->setValue(static_cast<int>(seconds / most * 1000));
        bar->setFormat(durationText(seconds));
        QDate date = QDate::fromString(QString::fromStdString(day), Qt::ISODate);
        bar->setAccessibleName(QString::fromStdString(day));
        days->addRow(QLocale().toString(date, QStringLiteral("ddd d")), bar);
    }
    layout->addLayout(days);
    return card;
}

} // namespace kestrune
