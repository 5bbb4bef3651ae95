#include "KestruneDock/SystemWidgets/ActivityWidget.h"

#include <cmath>

#include <QFontMetricsF>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QVBoxLayout>

#include "KestruneKit/SystemStats/ProcessesMonitor.h"
#include "KestruneKit/SystemStats/StorageMonitor.h"

namespace kestrune {

namespace {

constexpr double labelsFrom = 28;

QString percent(double fraction)
{
    return QStringLiteral("%1\u2009%").arg(static_cast<int>(std::lround(std::clamp(fraction, 0.0, 1.0) * 100)));
}

double memoryShare(const SystemStatsReading& reading)
{
    return reading.memoryTotal ? static_cast<double>(reading.memoryUsed) / static_cast<double>(reading.memoryTotal) : 0;
}

QString text(const std::string& words)
{
    return QString::fromStdString(words);
}

QFont labelFont(double size)
{
    QFont font;
    font.setPixelSize(std::max(6, static_cast<int>(std::lround(size * 0.15))));
    font.setWeight(QFont::DemiBold);
    return font;
}

} // namespace

ActivityWidget::ActivityWidget(WidgetInstance instance, WidgetMonitors& monitors)
    : SystemStatsTile(std::move(instance), monitors, SystemStatsParts::cpu() | SystemStatsParts::memory() | SystemStatsParts::gpu())
{
}

std::vector<ActivityWidget::Gauge> ActivityWidget::gauges(const SystemStatsReading& reading)
{
    std::vector<Gauge> shown;
    // A machine with two kinds of core shows each kind's average: a busy efficiency cluster
    // reads differently from a busy performance one.
    double performance = 0, efficiency = 0;
    int performanceCount = 0, efficiencyCount = 0;
    for (const SystemStatsCore& core : reading.cores) {
        if (core.kind == SystemStatsCoreKind::performance) {
            performance += core.busy;
            ++performanceCount;
        } else if (core.kind == SystemStatsCoreKind::efficiency) {
            efficiency += core.busy;
            ++efficiencyCount;
        }
    }
    if (performanceCount && efficiencyCount) {
        shown.push_back({ QStringLiteral("P"), performance / performanceCount, systemface::processorColour() });
        shown.push_back({ QStringLiteral("E"), efficiency / efficiencyCount, systemface::processorColour().darker(130) });
    } else {
        shown.push_back({ QStringLiteral("CPU"), reading.cpu, systemface::processorColour() });
    }
    shown.push_back({ QStringLiteral("MEM"), memoryShare(reading), systemface::memoryColour(reading.pressure) });
    if (reading.gpu)
        shown.push_back({ QStringLiteral("GPU"), *reading.gpu, systemface::graphicsColour() });
    return shown;
}

double ActivityWidget::length(double iconSize) const
{
    size_t count = gauges(reading()).size();
    if (rings())
        return std::ceil(widgetface::inset(iconSize) * 2 + count * iconSize * 0.62 + (count - 1) * iconSize * 0.08);
    return std::ceil(std::max(iconSize, widgetface::inset(iconSize) * 2 + count * iconSize * 0.3 + (count - 1) * iconSize * 0.12));
}

void ActivityWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    std::vector<Gauge> shown = gauges(reading());
    double size = tile.height();
    double pad = widgetface::inset(size);
    bool labels = size >= labelsFrom;
    QFont font = labelFont(size);
    double labelHeight = labels ? QFontMetricsF(font).height() : 0;
    double left = tile.left() + pad;
    double top = tile.top() + size * (labels ? 0.14 : 0.18);
    double bottom = tile.bottom() - size * (labels ? 0.1 : 0.18) - labelHeight;
    painter.save();
    painter.setFont(font);
    for (const Gauge& gauge : shown) {
        double width = rings() ? size * 0.62 : size * 0.3;
        QRectF box(left, top, width, bottom - top);
        if (rings()) {
            double diameter = std::min(box.width(), box.height());
            QRectF circle(box.center().x() - diameter / 2, box.center().y() - diameter / 2, diameter, diameter);
            systemface::paintRing(painter, circle, gauge.fraction, gauge.colour, std::max(1.5, size * 0.07));
            if (labels) {
                QFont figure = labelFont(size * 1.1);
                painter.setFont(figure);
                painter.setPen(QColor(255, 255, 255, 235));
                painter.drawText(circle, Qt::AlignCenter, QString::number(std::lround(std::clamp(gauge.fraction, 0.0, 1.0) * 100)));
                painter.setFont(font);
            }
        } else {
            QRectF bar(box.center().x() - size * 0.09, box.top(), size * 0.18, box.height());
            systemface::paintBar(painter, bar, gauge.fraction, gauge.colour);
        }
        if (labels) {
            painter.setPen(QColor(255, 255, 255, 200));
            painter.drawText(QRectF(box.left() - size * 0.1, bottom + size * 0.02, box.width() + size * 0.2, labelHeight), Qt::AlignCenter,
                             gauge.label);
        }
        left += width + size * (rings() ? 0.08 : 0.12);
    }
    painter.restore();
}

std::string ActivityWidget::accessibleText() const
{
    if (!hasSample())
        return "Activity, measuring";
    QStringList parts;
    for (const Gauge& gauge : gauges(reading()))
        parts << gauge.label + QLatin1Char(' ') + percent(gauge.fraction);
    return ("Activity, " + parts.join(QStringLiteral(", "))).toStdString();
}

namespace {

// Each core's busy share over the sampler's recent history, one small graph per core.
class CoreHistory final : public QWidget {
public:
    explicit CoreHistory(WidgetMonitors& monitors) : monitors_(monitors)
    {
        setAccessibleName(QStringLiteral("Processor history"));
        setMinimumHeight(60);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        const SystemStatsHistory& history = monitors_.systemStats().history();
        size_t cores = 0;
        for (size_t index = 0; index < history.size(); ++index)
            cores = std::max(cores, history[index].cores.size());
        if (cores == 0) {
            painter.setPen(palette().color(QPalette::WindowText));
            painter.drawText(rect(), Qt::AlignCenter, QStringLiteral("Measuring…"));
            return;
        }
        int columns = static_cast<int>(std::min<size_t>(cores, 8));
        int rows = static_cast<int>((cores + columns - 1) / columns);
        double cellWidth = width() / static_cast<double>(columns);
        double cellHeight = height() / static_cast<double>(rows);
        for (size_t core = 0; core < cores; ++core) {
            std::vector<double> values;
            SystemStatsCoreKind kind = SystemStatsCoreKind::unknown;
            for (size_t index = 0; index < history.size(); ++index) {
                const auto& reading = history[index];
                values.push_back(core < reading.cores.size() ? reading.cores[core].busy : 0);
                if (core < reading.cores.size())
                    kind = reading.cores[core].kind;
            }
            QRectF cell(static_cast<double>(core % static_cast<size_t>(columns)) * cellWidth + 2,
                        static_cast<double>(core / static_cast<size_t>(columns)) * cellHeight + 2, cellWidth - 4, cellHeight - 4);
            painter.fillRect(cell, QColor(127, 127, 127, 40));
            QColor colour = kind == SystemStatsCoreKind::efficiency ? systemface::processorColour().darker(130) : systemface::processorColour();
            systemface::paintGraph(painter, cell, values, 1.0, colour);
        }
    }

private:
    WidgetMonitors& monitors_;
};

class ActivityCard final : public SamplerCard {
public:
    explicit ActivityCard(WidgetMonitors& monitors) : SamplerCard(monitors, SystemStatsParts::all())
    {
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        summary_ = new QLabel;
        summary_->setAccessibleName(QStringLiteral("Summary"));
        summary_->setTextInteractionFlags(Qt::TextSelectableByMouse);
        history_ = new CoreHistory(monitors);
        byProcessor_ = new QListWidget;
        byProcessor_->setAccessibleName(QStringLiteral("Using the most processor"));
        byMemory_ = new QListWidget;
        byMemory_->setAccessibleName(QStringLiteral("Using the most memory"));
        for (QListWidget* list : { byProcessor_, byMemory_ })
            list->setMaximumHeight(110);
        layout->addWidget(summary_);
        layout->addWidget(history_);
        layout->addWidget(new QLabel(QStringLiteral("Using the most processor")));
        layout->addWidget(byProcessor_);
        layout->addWidget(new QLabel(QStringLiteral("Using the most memory")));
        layout->addWidget(byMemory_);
        processesWatch_ = monitors_.addObserver(WidgetMonitors::Source::processes, [this] { fillProcesses(); });
        monitors_.processes().poller().setWanted(holder(), true);
        start();
        fillProcesses();
    }

    ~ActivityCard() override
    {
        monitors_.processes().poller().setWanted(holder(), false);
        monitors_.removeObserver(WidgetMonitors::Source::processes, processesWatch_);
    }

protected:
    void fill() override
    {
        const auto& snapshot = monitors_.systemStats().snapshot();
        if (!snapshot.at) {
            summary_->setText(QStringLiteral("Measuring…"));
            return;
        }
        const SystemStatsReading& reading = snapshot.reading;
        QStringList lines;
        lines << QStringLiteral("Processor %1 (user %2, system %3)").arg(percent(reading.cpu), percent(reading.cpuUser), percent(reading.cpuSystem));
        lines << QStringLiteral("Memory %1 of %2, pressure %3")
                     .arg(text(byteText(reading.memoryUsed)), text(byteText(reading.memoryTotal)),
                          text(std::string(reading.pressure == SystemStatsPressure::unknown ? "not known" : toString(reading.pressure))));
        if (reading.swapUsed)
            lines << QStringLiteral("Swap %1 used").arg(text(byteText(reading.swapUsed)));
        lines << (reading.gpu ? QStringLiteral("Graphics %1").arg(percent(*reading.gpu)) : QStringLiteral("Graphics not measured on this machine"));
        lines << QStringLiteral("Network \u2193 %1 \u2191 %2").arg(text(rateText(reading.down)), text(rateText(reading.up)));
        summary_->setText(lines.join(QLatin1Char('\n')));
        history_->update();
    }

private:
    void fillProcesses()
    {
        const auto& top = monitors_.processes().reading();
        byProcessor_->clear();
        byMemory_->clear();
        if (!top)
            return;
        for (const ProcessUse& use : top->byProcessor)
            // A process with many threads can keep more than one core busy: over 100 %, as top shows it.
            byProcessor_->addItem(QStringLiteral("%1 — %2\u2009%").arg(text(use.name)).arg(std::lround(use.processor * 100)));
        for (const ProcessUse& use : top->byMemory)
            byMemory_->addItem(QStringLiteral("%1 — %2").arg(text(use.name), text(byteText(use.memory))));
    }

    [[nodiscard]] std::string holder() const { return "activity-card-" + std::to_string(reinterpret_cast<uintptr_t>(this)); }

    QLabel* summary_ = nullptr;
    CoreHistory* history_ = nullptr;
    QListWidget* byProcessor_ = nullptr;
    QListWidget* byMemory_ = nullptr;
    uint64_t processesWatch_ = 0;
};

} // namespace

QWidget* ActivityWidget::makeCard()
{
    return new ActivityCard(monitors_);
}

} // namespace kestrune
