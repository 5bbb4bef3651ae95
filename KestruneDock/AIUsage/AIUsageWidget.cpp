#include "KestruneDock/AIUsage/AIUsageWidget.h"

#include <algorithm>

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include "KestruneDock/WidgetViews/WidgetCard.h"
#include "KestruneKit/AIUsage/AIUsageStatusLine.h"

namespace kestrune {

namespace {

QString text(std::string_view words) { return QString::fromUtf8(words.data(), static_cast<qsizetype>(words.size())); }

QColor levelColour(std::optional<AIUsageLevel> level)
{
    if (!level)
        return stateColour::unknown();
    switch (*level) {
    case AIUsageLevel::plenty: return stateColour::good();
    case AIUsageLevel::low: return stateColour::waiting();
    case AIUsageLevel::nearlyGone: return stateColour::trouble();
    }
    return stateColour::unknown();
}

} // namespace

AIUsageWidget::AIUsageWidget(WidgetInstance instance, WidgetMonitors& monitors) : LinesTile(std::move(instance), 4), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::aiUsage, [this] { tellChanged(); });
}

AIUsageWidget::~AIUsageWidget()
{
    demand_.release();
    monitors_.removeObserver(WidgetMonitors::Source::aiUsage, watch_);
}

void AIUsageWidget::shownChanged()
{
    if (shown_ && monitors_.aiUsage())
        demand_ = monitors_.aiUsage()->demand(AIUsageEngine::Demand::Tokens::live);
    else
        demand_.release();
}

AIUsageWidget::Face AIUsageWidget::faceFor(const AIUsageSnapshot& snapshot, Date now)
{
    const QString name = QStringLiteral("AI Usage");
    // The limit nearest its end, of any tool, is what matters most.
    const AIUsageToolSummary::Row* tightest = nullptr;
    AIUsageTool tightestTool = AIUsageTool::claude;
    double tightestUse = -1;
    std::vector<AIUsageToolSummary> summaries;
    summaries.reserve(snapshot.reports.size());
    for (const AIUsageReport& report : snapshot.reports)
        summaries.push_back(summarize(report, now, snapshot.counting));
    for (size_t index = 0; index < summaries.size(); ++index) {
        const AIUsageReport& report = snapshot.reports[index];
        for (const auto& row : summaries[index].rows) {
            if (row.window.kind != AIUsageToolSummary::WindowKind::limit || !row.level || row.window.index >= report.limits.size())
                continue;
            double used = report.limits[row.window.index].used;
            if (used > tightestUse) {
                tightest = &row;
                tightestTool = report.tool;
                tightestUse = used;
            }
        }
    }
    if (tightest)
        return { text(shortName(tightestTool)) + QStringLiteral(" · ") + QString::fromStdString(tightest->title),
                 QString::fromStdString(tightest->value), levelColour(tightest->level) };
    // No limits known: the first tool's last five hours.
    for (const auto& summary : summaries)
        for (const auto& row : summary.rows)
            if (row.window.kind == AIUsageToolSummary::WindowKind::block)
                return { text(shortName(summary.tool)) + QStringLiteral(" · ") + QString::fromStdString(row.title),
                         QString::fromStdString(row.value), stateColour::unknown() };
    return { name, snapshot.counting || !snapshot.counted ? QStringLiteral("Looking…") : text(AIUsageWords::noToolsFound), stateColour::unknown() };
}

AIUsageWidget::Face AIUsageWidget::face() const
{
    if (!monitors_.aiUsage())
        return faceFor({}, monitors_.runtime().now());
    return faceFor(monitors_.aiUsage()->snapshot(), monitors_.runtime().now());
}

QWidget* AIUsageWidget::makeCard()
{
    WidgetMonitors& monitors = monitors_;
    auto demand = std::make_shared<AIUsageEngine::Demand>();
    if (monitors.aiUsage())
        *demand = monitors.aiUsage()->demand(AIUsageEngine::Demand::Tokens::live);
    auto watch = std::make_shared<uint64_t>(0);
    auto* card = new ListCard(
        [&monitors](ListCard& shown) {
            shown.items->clear();
            AIUsageEngine* engine = monitors.aiUsage();
            const AIUsageSnapshot empty;
            const AIUsageSnapshot& snapshot = engine ? engine->snapshot() : empty;
            shown.status->setText(snapshot.reports.empty() ? faceFor(snapshot, monitors.runtime().now()).value
                                                           : text(AIUsageWords::noLoginPrivacy));
            for (const AIUsageReport& report : snapshot.reports) {
                QString heading = text(displayName(report.tool));
                if (report.plan)
                    heading += QStringLiteral(" · ") + QString::fromStdString(*report.plan);
                auto* title = new QListWidgetItem(heading);
                QFont font = title->font();
                font.setBold(true);
                title->setFont(font);
                title->setFlags(Qt::ItemIsEnabled);
                shown.items->addItem(title);
                for (const auto& row : summarize(report, monitors.runtime().now(), snapshot.counting).rows) {
                    QString line = QStringLiteral("%1 — %2").arg(QString::fromStdString(row.title), QString::fromStdString(row.value));
                    if (!row.detail.empty())
                        line += QStringLiteral(" · ") + QString::fromStdString(row.detail);
                    auto* item = new QListWidgetItem(line);
                    item->setForeground(levelColour(row.level).darker(row.level ? 130 : 100));
                    shown.items->addItem(item);
                }
            }
        },
        [&monitors, demand, watch] {
            demand->release();
            monitors.removeObserver(WidgetMonitors::Source::aiUsage, *watch);
        });
    *watch = monitors.addObserver(WidgetMonitors::Source::aiUsage, [card] { card->refresh(); });
    if (monitors.claudeBridge())
        addStatusLineControls(*card, monitors);
    return card;
}

void AIUsageWidget::addStatusLineControls(ListCard& card, WidgetMonitors& monitors)
{
    auto bridge = std::make_shared<ClaudeBridge>(*monitors.claudeBridge());
    auto* note = new QLabel;
    note->setWordWrap(true);
    note->setAccessibleName(QStringLiteral("Claude Code’s status line"));
    auto* connect = new QPushButton;
    static_cast<QVBoxLayout*>(card.layout())->insertWidget(card.layout()->count() - 1, note);
    card.buttons->addWidget(connect);
    // Connecting edits Claude Code's settings: the first press says what it will do, the second
    // does it.
    auto asking = std::make_shared<bool>(false);
    auto show = [bridge, note, connect, asking] {
        bool connected = bridge->isConnected();
        connect->setText(text(connected ? ClaudeBridgeWords::disconnectItem : *asking ? std::string_view("Connect") : ClaudeBridgeWords::connectItem));
        note->setText(*asking ? text(ClaudeBridgeWords::dialogTitle) + QStringLiteral("\n") + text(ClaudeBridgeWords::dialogMessage)
                      : connected ? QStringLiteral("Claude Code’s status line shares your plan’s limits with the dock.")
                                  : text(ClaudeBridgeWords::terminalNote));
    };
    show();
    QObject::connect(connect, &QPushButton::clicked, &card, [&monitors, bridge, note, asking, show] {
        std::optional<ClaudeBridge::Failure> failure;
        if (bridge->isConnected()) {
            failure = bridge->disconnect();
        } else if (!std::exchange(*asking, true)) {
            show();
            return;
        } else {
            *asking = false;
            failure = bridge->connect();
        }
        show();
        if (failure)
            note->setText(text(ClaudeBridge::text(*failure)));
        if (monitors.aiUsage())
            monitors.aiUsage()->noteLimitsChange();
    });
}

WidgetLines AIUsageWidget::lines() const
{
    Face shown = face();
    return { shown.caption, shown.value, shown.state };
}

} // namespace kestrune
