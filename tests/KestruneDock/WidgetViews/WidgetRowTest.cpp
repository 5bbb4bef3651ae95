// The widget tiles in the dock row, painted offscreen: where they stand, what they say from their
// real monitors, when they want them, and the pages tile when the row does not fit.

#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>

#include <QAccessible>
#include <QCheckBox>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QPainter>
#include <gtest/gtest.h>

#include "KestruneDock/AIUsage/AIUsageWidget.h"
#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/Commands/CommandsWidget.h"
#include "KestruneDock/DevGit/GitWidget.h"
#include "KestruneDock/DevTimestamp/TimestampWidget.h"
#include "KestruneDock/Dock/DockStore.h"
#include "KestruneDock/Panel/DockPanel.h"
#include "KestruneDock/Panel/DockPanelController.h"
#include "KestruneDock/Panel/TileRasterQt.h"
#include "KestruneDock/WidgetViews/WidgetCard.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetRow.h"
#include "KestruneKit/AIUsage/AIUsageStatusLine.h"
#include "KestruneKit/Containers/ContainersMonitor.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/Core/UniqueFd.h"
#include "KestruneKit/DevTools/ShellCommandRunner.h"
#include "KestruneKit/DevServers/DevServersMonitor.h"
#include "KestruneKit/Endpoints/EndpointsMonitor.h"
#include "KestruneKit/GitHub/PullRequestsMonitor.h"
#include "KestruneKit/Preferences/Preferences.h"
#include "KestruneKit/Repositories/RepositoriesMonitor.h"
#include "KestruneKit/Simulators/SimulatorsMonitor.h"
#include "tests/KestruneKit/AIUsage/AIUsageTestSupport.h"
#include "tests/helpers/FakeWorkspace.h"
#include "tests/helpers/LocalServer.h"
#include "tests/helpers/PrivateEngine.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/WidgetImages.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

template <typename Control>
Control* named(QWidget& card, const char* name)
{
    for (auto* control : card.findChildren<Control*>())
        if (control->accessibleName() == QString::fromUtf8(name) || control->property("text").toString() == QString::fromUtf8(name))
            return control;
    ADD_FAILURE() << "nothing named " << name;
    return nullptr;
}

class WidgetRowTest : public ::testing::Test {
protected:
    WidgetRowTest()
    {
        workspace.suffix = ".desktop";
        workspace.files.insert("/apps/red.desktop");
        preferences.set(DockStore::pinnedKey, std::vector<std::string> { "/apps/red.desktop" });
        // A working copy with one file not yet committed.
        test::shell(folder.path(), "git init -q -b main project && cd project && echo one > one && git add one"
                                   " && git config user.name T && git config user.email t@e && git commit -qm one && echo two > two");
        widgets.apply(*widgetPreset("Developer"));
        git = widgets.instances()[0].id;
        widgets.setOption(git, "folder", folder.file("project"));
        store = std::make_unique<DockStore>(preferences, workspace, runtime, &raster);
        controller = std::make_unique<DockPanelController>(preferences, *store, runtime);
        controller->setWidgetRow(&row);
        controller->show();
        spin();
    }

    ~WidgetRowTest() override { controller.reset(); }

    // Lets posted work (the pager's rebuild, the monitor's readings) land.
    static void spin() { test::spinUntil([] { return false; }, 50); }

    [[nodiscard]] std::vector<std::string> widgetSlots() const
    {
        std::vector<std::string> kinds;
        for (const DockRowItem& item : controller->items())
            if (item.slot.kind == DockSlotKind::widget)
                kinds.push_back(item.name);
            else if (item.slot.kind == DockSlotKind::widgetPages)
                kinds.push_back("pages");
        return kinds;
    }

    test::TemporaryFolder folder;
    JSONFilePreferences preferences { folder.file("app.quillane.dock.json") };
    test::FakeWorkspace workspace;
    QtRuntime runtime;
    TileRasterQt raster;
    WidgetStore widgets { preferences };
    WidgetPaging paging { widgets, preferences };
    WidgetMonitors monitors { runtime };
    WidgetRow row { widgets, paging, monitors };
    Uuid git;
    std::unique_ptr<DockStore> store;
    std::unique_ptr<DockPanelController> controller;
};

TEST_F(WidgetRowTest, TilesStandAfterTheAppsInPagesThatFitAndThePagesTileStepsThroughThem)
{
    // The offscreen screen is narrower than the nine Developer widgets.
    ASSERT_GT(paging.pages().size(), 1U);
    std::vector<std::string> firstPage = widgetSlots();
    ASSERT_GE(firstPage.size(), 2U);
    EXPECT_EQ(firstPage.front(), "Git");
    EXPECT_EQ(firstPage.back(), "pages");
    EXPECT_EQ(controller->items().back().slot.kind, DockSlotKind::trash);
    EXPECT_EQ(row.onScreen(), paging.shown()) << "what is on screen is what the pager shows";
    EXPECT_LE(controller->layout().restingLength(), 800) << "the row runs off the screen";
    test::saveWidgetImage(controller->panel().render(), "row-developer-page-1-1x");
    auto window = controller->windowRect();
    QImage twice(static_cast<int>(window.width * 2), static_cast<int>(window.height * 2), QImage::Format_ARGB32_Premultiplied);
    twice.setDevicePixelRatio(2);
    twice.fill(Qt::transparent);
    {
        QPainter painter(&twice);
        controller->paint(painter, 2);
    }
    test::saveWidgetImage(twice, "row-developer-page-1-2x");

    // A click on the pages tile shows the next page; the first page's tiles leave the screen.
    size_t pagesTile = controller->items().size() - 2;
    const DockSlotFrame& frame = controller->layout().frames()[pagesTile];
    auto [x, y] = controller->placement().toWindow(controller->windowRect(), frame.tile.axisCenter(), frame.tile.depth + 10);
    controller->clicked(QPointF(controller->windowRect().x + x, controller->windowRect().y + y), Qt::LeftButton);
    // The new page slides in from the row's end, and settles.
    EXPECT_GT(controller->pageSlideOffset(), 0);
    EXPECT_TRUE(test::spinUntil([&] { return controller->pageSlideOffset() == 0; }, 3000));
    EXPECT_EQ(paging.page(), 1U);
    EXPECT_NE(widgetSlots(), firstPage);
    EXPECT_EQ(row.onScreen(), paging.shown());
    EXPECT_FALSE(row.tile(git)->isShown()) << "a tile on another page is still shown";
    // Stepping back, it comes from the start.
    paging.showPreviousPage();
    EXPECT_LT(controller->pageSlideOffset(), 0);
}

TEST_F(WidgetRowTest, AScreenReaderFindsTheTilesAndTheWidgetsGroupNamedForItsPage)
{
    QAccessibleInterface* dock = QAccessible::queryAccessibleInterface(&controller->panel());
    ASSERT_TRUE(dock);
    EXPECT_EQ(dock->text(QAccessible::Name), QStringLiteral("Dock"));
    EXPECT_EQ(dock->role(), QAccessible::ToolBar);
    ASSERT_GT(dock->childCount(), 2);
    std::vector<std::string> names;
    QAccessibleInterface* group = nullptr;
    for (int index = 0; index < dock->childCount(); ++index) {
        QAccessibleInterface* child = dock->child(index);
        names.push_back(child->text(QAccessible::Name).toStdString());
        if (child->role() == QAccessible::Grouping)
            group = child;
    }
    EXPECT_EQ(names.front(), controller->items().front().name);
    EXPECT_EQ(names.back(), "Trash");
    ASSERT_TRUE(group) << "no group for the widgets";
    EXPECT_EQ(dock->indexOfChild(group), 1);
    size_t pageCount = paging.pages().size();
    EXPECT_EQ(group->text(QAccessible::Name).toStdString(), "Widgets, page 1 of " + std::to_string(pageCount));
    ASSERT_EQ(group->childCount(), static_cast<int>(paging.shown().size()) + 1);
    EXPECT_EQ(group->child(0)->text(QAccessible::Name).toStdString(), row.tile(git)->accessibleText());
    EXPECT_TRUE(group->rect().contains(group->child(0)->rect().center()));

    // Pressing the pages tile steps, as a click does.
    QAccessibleInterface* pages = group->child(group->childCount() - 1);
    EXPECT_EQ(pages->text(QAccessible::Name).toStdString(), WidgetPaging::pagesHelp());
    pages->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    spin();
    EXPECT_EQ(group->text(QAccessible::Name).toStdString(), "Widgets, page 2 of " + std::to_string(pageCount));
}

TEST_F(WidgetRowTest, TheGitTileReadsItsFolderOnlyWhileTheDockShowsIt)
{
    RepositoriesMonitor& repositories = monitors.repositories();
    EXPECT_TRUE(repositories.poller().isActive()) << "the shown Git tile wants no reading";
    EXPECT_TRUE(test::spinUntil([&] { return repositories.states().contains(folder.file("project")); }));
    spin();
    EXPECT_EQ(row.tile(git)->accessibleText(), "project · main: 1 change to commit");
    QImage shown = controller->panel().render();
    test::saveWidgetImage(shown, "row-git-1x");

    // Out of sight, for any reason, nothing is read and nothing ticks.
    controller->orderOut();
    EXPECT_FALSE(repositories.poller().isActive());
    controller->show();
    EXPECT_TRUE(repositories.poller().isActive());
    controller->setFullScreenActive(true);
    EXPECT_FALSE(repositories.poller().isActive());
    EXPECT_TRUE(row.onScreen().empty());
    controller->setFullScreenActive(false);
    EXPECT_TRUE(repositories.poller().isActive());

    // Pointed elsewhere while shown, it reads the new folder at once.
    widgets.setOption(git, "folder", folder.file("gone"));
    EXPECT_TRUE(test::spinUntil([&] { return row.tile(git)->accessibleText() == "gone: Not found"; })) << row.tile(git)->accessibleText();
    EXPECT_EQ(repositories.wanted(), std::vector<std::string> { folder.file("gone") });

    // Taken out of the row, the tile gives its want and its folder up.
    widgets.remove(git);
    spin();
    EXPECT_FALSE(repositories.poller().isActive());
    EXPECT_TRUE(repositories.wanted().empty());
}

TEST_F(WidgetRowTest, WithTheStackPolicyTheRestWaitBehindAStackTileWhoseListOpensTheirCards)
{
    preferences.set("widgetOverflow", std::string("stack"));
    spin();
    ASSERT_TRUE(paging.showsStackTile());
    ASSERT_FALSE(paging.stacked().empty());
    EXPECT_EQ(widgetSlots().back(), "pages") << "no stack tile after the shown widgets";
    EXPECT_EQ(controller->items()[controller->items().size() - 2].name, WidgetPaging::stackHelp(paging.stacked().size()));
    test::saveWidgetImage(controller->panel().render(), "row-developer-stack-1x");

    size_t stackTile = controller->items().size() - 2;
    const DockSlotFrame& frame = controller->layout().frames()[stackTile];
    auto [x, y] = controller->placement().toWindow(controller->windowRect(), frame.tile.axisCenter(), frame.tile.depth + 10);
    controller->clicked(QPointF(controller->windowRect().x + x, controller->windowRect().y + y), Qt::LeftButton);
    ASSERT_TRUE(controller->openCard());
    auto* list = controller->openCard()->findChild<QListWidget*>();
    ASSERT_TRUE(list);
    ASSERT_EQ(list->count(), static_cast<int>(paging.stacked().size()));
    EXPECT_TRUE(list->item(0)->text().startsWith(QStringLiteral("In the stack · "))) << list->item(0)->text().toStdString();
    Uuid first = paging.stacked().front();
    Q_EMIT list->itemActivated(list->item(0));
    spin();
    EXPECT_EQ(paging.presented(), first) << "the chosen widget's card did not open";
}

TEST_F(WidgetRowTest, AWidgetCarriedOutOfTheStackLandsInTheRowAndOneDroppedOnTheStackGoesIn)
{
    preferences.set("widgetOverflow", std::string("stack"));
    spin();
    ASSERT_TRUE(paging.showsStackTile());
    auto slotOf = [&](const std::string& path) {
        for (size_t index = 0; index < controller->items().size(); ++index)
            if (controller->items()[index].path == path)
                return index;
        ADD_FAILURE() << "no tile " << path;
        return size_t { 0 };
    };
    auto carrying = [](const Uuid& id) {
        auto data = std::make_unique<QMimeData>();
        data->setData(QString::fromLatin1(WidgetPaging::dragFromStackType.data()), QByteArray::fromStdString(id.toString()));
        return data;
    };
    auto over = [&](const std::string& path) { return QPointF(controller->slotOnDesktop(slotOf(path)).center()); };

    // Over an app it is no drop; over a widget tile, that tile lights up, and the widget lands there.
    Uuid stacked = paging.stacked().front();
    auto data = carrying(stacked);
    EXPECT_EQ(controller->dragOver(QPointF(controller->slotOnDesktop(0).center()), *data), Qt::IgnoreAction);
    EXPECT_EQ(controller->dragOver(over(git.toString()), *data), Qt::MoveAction);
    EXPECT_TRUE(controller->items()[slotOf(git.toString())].highlighted);
    controller->dropped(over(git.toString()), *data);
    spin();
    EXPECT_EQ(paging.shown().front(), stacked) << "the widget did not land where it was let go";
    EXPECT_EQ(paging.shown()[1], git);
    // Whatever no longer fits waits in the stack, in the row's new order.
    std::vector<Uuid> order = paging.shown();
    order.insert(order.end(), paging.stacked().begin(), paging.stacked().end());
    std::vector<Uuid> stored;
    for (const WidgetInstance& instance : widgets.instances())
        stored.push_back(instance.id);
    EXPECT_EQ(order, stored);

    // A tile dropped on the stack tile goes in.
    std::string stackTile(DockPanelController::widgetControlPath);
    auto tile = carrying(git);
    EXPECT_EQ(controller->dragOver(over(stackTile), *tile), Qt::MoveAction);
    EXPECT_TRUE(controller->items()[slotOf(stackTile)].highlighted);
    controller->dropped(over(stackTile), *tile);
    spin();
    EXPECT_EQ(paging.stacked().back(), git);
    EXPECT_EQ(widgets.instances().back().id, git);
}

TEST_F(WidgetRowTest, APressOnATileOpensItsCardWhichHoldsItsWantUntilItClosesOrItsWidgetGoes)
{
    auto press = [&](const Uuid& id) {
        for (size_t index = 0; index < controller->items().size(); ++index) {
            if (controller->items()[index].path != id.toString())
                continue;
            const DockSlotFrame& frame = controller->layout().frames()[index];
            auto [x, y] = controller->placement().toWindow(controller->windowRect(), frame.tile.axisCenter(), frame.tile.depth + 10);
            controller->clicked(QPointF(controller->windowRect().x + x, controller->windowRect().y + y), Qt::LeftButton);
            return true;
        }
        return false;
    };
    ASSERT_TRUE(press(git));
    WidgetCard* card = controller->openCard();
    ASSERT_TRUE(card) << "no card";
    EXPECT_EQ(paging.presented(), git);
    auto* files = card->findChild<QListWidget*>();
    ASSERT_TRUE(files);
    EXPECT_TRUE(test::spinUntil([&] { return files->count() == 1 && files->item(0)->text().endsWith(QStringLiteral("two")); }))
        << "the card does not list the file not yet committed";
    test::saveCardImages(*card, "card-git");

    // Everything committed from the card; a push with nowhere to go says so.
    named<QLineEdit>(*card, "Commit message")->setText(QStringLiteral("Add two"));
    named<QPushButton>(*card, "Commit All")->click();
    auto* outcome = named<QLabel>(*card, "Outcome");
    EXPECT_TRUE(test::spinUntil([&] { return outcome->text() == QStringLiteral("Committed") && files->count() == 0; }, 20000))
        << outcome->text().toStdString();
    EXPECT_EQ(test::shell(folder.file("project"), "git log -1 --format=%s"), "Add two\n");
    named<QPushButton>(*card, "Push")->click();
    EXPECT_TRUE(test::spinUntil([&] { return outcome->text() == QStringLiteral("There’s no remote to push to"); }, 20000))
        << outcome->text().toStdString();
    EXPECT_TRUE(named<QPlainTextEdit>(*card, "Git’s output")->toPlainText().contains(QStringLiteral("No configured push destination")));
    test::saveCardImages(*card, "card-git-pushed");

    // The open card wants the repository read even with every tile out of sight.
    row.setOnScreen({});
    EXPECT_TRUE(monitors.repositories().poller().isActive());
    row.setOnScreen(paging.shown());
    // A second press closes it, and with it its want.
    ASSERT_TRUE(press(git));
    spin();
    EXPECT_FALSE(controller->openCard());
    EXPECT_FALSE(paging.presented());
    controller->orderOut();
    EXPECT_FALSE(monitors.repositories().poller().isActive()) << "a closed card still wants its monitor";
    controller->show();
    spin();

    // A card whose widget leaves the row closes.
    ASSERT_TRUE(press(git));
    ASSERT_TRUE(controller->openCard());
    widgets.remove(git);
    spin();
    EXPECT_FALSE(controller->openCard());
}

TEST(WidgetTiles, NothingIsArmedOrReadWhileTheDevelopersRowIsOutOfSight)
{
    test::TemporaryFolder folder;
    JSONFilePreferences preferences(folder.file("app.quillane.dock.json"));
    ManualRuntime runtime(Date(std::chrono::seconds(1'800'000'000)));
    WidgetStore widgets(preferences);
    WidgetPaging paging(widgets, preferences);
    WidgetMonitors monitors(runtime);
    WidgetRow row(widgets, paging, monitors);
    widgets.apply(*widgetPreset("Developer"));
    widgets.setOption(widgets.instances()[0].id, "folder", folder.path());
    std::vector<Uuid> all;
    for (const WidgetInstance& instance : widgets.instances())
        all.push_back(instance.id);

    // Shown, the Git, Containers, Dev Servers and Timestamp tiles arm their timers.
    row.setOnScreen(all);
    EXPECT_GE(runtime.timers().size(), 4U);
    ASSERT_TRUE(runtime.runUntil([&] { return monitors.devServers().servers().has_value(); }));

    // Out of sight for a minute: no timer is left to fire, so nothing is read and no tool runs.
    row.setOnScreen({});
    EXPECT_TRUE(runtime.timers().empty()) << runtime.timers().size() << " timers still armed";
    auto before = monitors.devServers().servers();
    runtime.advance(Seconds(60));
    EXPECT_EQ(runtime.runPosted(), 0U) << "work was posted while nothing was shown";
    EXPECT_TRUE(runtime.timers().empty());
    EXPECT_EQ(monitors.devServers().servers(), before);
}

// A widget row of its own, with no dock around it.
class WidgetRowAlone : public ::testing::Test {
protected:
    test::TemporaryFolder folder;
    JSONFilePreferences preferences { folder.file("app.quillane.dock.json") };
    QtRuntime runtime;
    WidgetStore widgets { preferences };
    WidgetPaging paging { widgets, preferences };
    WidgetMonitors monitors { runtime };
    WidgetRow row { widgets, paging, monitors };
};

TEST_F(WidgetRowAlone, EveryTileKeepsItsTextOnItsPlateFrom16To96Points)
{
    std::vector<WidgetKind> kinds = widgetPreset("Developer")->kinds;
    kinds.insert(kinds.end(), { WidgetKind::github, WidgetKind::shortcuts, WidgetKind::clock });
    for (WidgetKind kind : kinds) {
        auto tile = makeWidgetTile(WidgetInstance::make(kind), monitors);
        std::string name(toString(kind));
        EXPECT_GT(tile->length(96), tile->length(16) * 3) << name;
        for (double size : { 16.0, 96.0 }) {
            for (int scale : { 1, 2 }) {
                // A margin round the tile, which nothing may reach.
                constexpr int margin = 6;
                QRectF plate(margin, margin, tile->length(size), size);
                QImage image((QSizeF(plate.width() + 2 * margin, size + 2 * margin) * scale).toSize(), QImage::Format_ARGB32_Premultiplied);
                image.setDevicePixelRatio(scale);
                image.fill(Qt::transparent);
                {
                    QPainter painter(&image);
                    painter.setRenderHint(QPainter::Antialiasing);
                    tile->paint(painter, plate, WidgetPaintContext { static_cast<double>(scale), false });
                }
                test::saveWidgetImage(image, "tile-" + name + "-" + std::to_string(static_cast<int>(size)) + "-" + std::to_string(scale) + "x");
                QRect inside = QRectF(plate.topLeft() * scale, plate.size() * scale).toAlignedRect();
                int outside = 0, bright = 0;
                for (int y = 0; y < image.height(); ++y)
                    for (int x = 0; x < image.width(); ++x) {
                        QColor pixel = image.pixelColor(x, y);
                        if (!inside.contains(x, y))
                            outside += pixel.alpha() > 0;
                        else if (pixel.red() > 200 && pixel.green() > 200 && pixel.blue() > 200)
                            ++bright;
                    }
                EXPECT_EQ(outside, 0) << name << " at " << size << " draws past its plate";
                // Activity's face is its gauges, empty before the first sample.
                if (kind != WidgetKind::activity) {
                    EXPECT_GT(bright, 4 * scale * scale) << name << " at " << size << " shows no text";
                }
            }
        }
    }
}

TEST_F(WidgetRowAlone, TheEndpointsTileChecksItsAddressesWhileShownAndItsCardListsThem)
{
    widgets.apply(WidgetPreset { "One", "", "", { WidgetKind::endpoints } });
    Uuid id = widgets.instances()[0].id;
    EXPECT_EQ(row.tile(id)->accessibleText(), "Endpoints: Add the addresses to check in Options");

    test::LocalServer server("HTTP/1.1 200 OK");
    widgets.setOption(id, "urls", server.address() + "\n");
    EXPECT_EQ(monitors.endpoints().addresses(), std::vector<std::string> { server.address() });
    row.setOnScreen({ id });
    EXPECT_TRUE(test::spinUntil([&] { return row.tile(id)->accessibleText().starts_with("Endpoints: Up · 200 · "); }, 10000))
        << row.tile(id)->accessibleText();
    std::unique_ptr<QWidget> card(row.tile(id)->makeCard());
    auto* list = card->findChild<QListWidget*>();
    ASSERT_TRUE(list && list->count() == 1);
    EXPECT_TRUE(list->item(0)->text().contains(QStringLiteral("200"))) << list->item(0)->text().toStdString();
    row.setOnScreen({});
    EXPECT_TRUE(monitors.endpoints().poller().isActive()) << "the open card let go of its want";
    card.reset();
    EXPECT_FALSE(monitors.endpoints().poller().isActive());
    widgets.remove(id);
    EXPECT_TRUE(monitors.endpoints().addresses().empty());
}

TEST_F(WidgetRowAlone, TheCommandsCardSavesACommandRunsItAndShowsHowItWent)
{
    widgets.apply(WidgetPreset { "One", "", "", { WidgetKind::shortcuts } });
    Uuid id = widgets.instances()[0].id;
    EXPECT_EQ(row.tile(id)->accessibleText(), "Commands: Save a command");

    std::unique_ptr<QWidget> card(row.tile(id)->makeCard());
    auto field = [&](const char* name) { return named<QLineEdit>(*card, name); };
    auto button = [&](const char* title) { return named<QPushButton>(*card, title); };
    field("Name")->setText(QStringLiteral("greet"));
    field("Command")->setText(QStringLiteral("echo hello from $PWD"));
    field("Folder")->setText(QString::fromStdString(folder.path()));
    button("Add Command")->click();
    auto saved = CommandsWidget::commandsIn(*widgets.instance(id));
    ASSERT_EQ(saved.size(), 1U) << "the command was not kept in the widget's options";
    EXPECT_EQ(saved[0].command, "echo hello from $PWD");
    EXPECT_EQ(row.tile(id)->accessibleText(), "Commands: greet");

    auto* list = card->findChild<QListWidget*>();
    ASSERT_EQ(list->count(), 1);
    list->setCurrentRow(0);
    button("Run")->click();
    auto* output = card->findChild<QPlainTextEdit*>();
    EXPECT_TRUE(test::spinUntil([&] { return output->toPlainText().contains(QStringLiteral("hello from ")); }, 10000))
        << output->toPlainText().toStdString();
    EXPECT_TRUE(output->toPlainText().contains(QString::fromStdString(folder.path())));
    EXPECT_EQ(row.tile(id)->accessibleText().rfind("Commands: greet: Done in ", 0), 0U) << row.tile(id)->accessibleText();

    // Chosen, it is in the form to change; saved, it keeps its identity and its last run.
    EXPECT_EQ(field("Command")->text(), QStringLiteral("echo hello from $PWD"));
    field("Command")->setText(QStringLiteral("echo changed"));
    named<QCheckBox>(*card, "Ask before running")->setChecked(true);
    button("Save Changes")->click();
    saved = CommandsWidget::commandsIn(*widgets.instance(id));
    ASSERT_EQ(saved.size(), 1U);
    EXPECT_EQ(saved[0].command, "echo changed");
    EXPECT_TRUE(saved[0].asksFirst);
    EXPECT_TRUE(monitors.commandResults().contains(saved[0].id)) << "the change lost the command's identity";

    // One that asks first runs on the second press only; Delete, likewise.
    button("Run")->click();
    EXPECT_FALSE(monitors.commands().isRunning(saved[0].id));
    ASSERT_TRUE(button("Run “greet”?"));
    button("Run “greet”?")->click();
    EXPECT_TRUE(test::spinUntil([&] { return output->toPlainText().contains(QStringLiteral("changed")); }, 10000));
    test::saveCardImages(*card, "card-commands");
    button("Delete")->click();
    EXPECT_EQ(CommandsWidget::commandsIn(*widgets.instance(id)).size(), 1U) << "deleted without asking";
    button("Delete “greet”?")->click();
    EXPECT_TRUE(CommandsWidget::commandsIn(*widgets.instance(id)).empty());
    EXPECT_EQ(list->count(), 0);
}

TEST(WidgetTiles, TheTimestampCardReadsSecondsMillisecondsAndDatesBothWays)
{
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    QString seconds = TimestampWidget::convert(QStringLiteral(" 1700000000 "));
    EXPECT_TRUE(seconds.contains(QStringLiteral("UTC: 2023-11-14T22:13:20.000Z"))) << seconds.toStdString();
    EXPECT_TRUE(seconds.contains(QStringLiteral("Milliseconds: 1700000000000")));
    EXPECT_TRUE(TimestampWidget::convert(QStringLiteral("1700000000123")).contains(QStringLiteral("22:13:20.123Z")));
    EXPECT_TRUE(TimestampWidget::convert(QStringLiteral("2023-11-14T22:13:20Z")).contains(QStringLiteral("Seconds: 1700000000")));
    EXPECT_TRUE(TimestampWidget::convert(QStringLiteral("soon")).isEmpty());
}

TEST_F(WidgetRowAlone, GitHubContainersAndDevServersTilesHoldTheirMonitorsWhileShownAndRedrawOnTheirNews)
{
    widgets.apply(WidgetPreset { "Three", "", "", { WidgetKind::github, WidgetKind::containers, WidgetKind::devServers } });
    std::vector<Uuid> ids { widgets.instances()[0].id, widgets.instances()[1].id, widgets.instances()[2].id };
    // A server of this process's own, on a port of its own.
    UniqueFd server(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(server.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(server.get(), 1), 0);
    socklen_t length = sizeof address;
    ::getsockname(server.get(), reinterpret_cast<sockaddr*>(&address), &length);
    std::string port = std::to_string(ntohs(address.sin_port));
    std::map<Uuid, int> redrawn;
    row.changed = [&](const Uuid& id) { ++redrawn[id]; };

    row.setOnScreen(ids);
    EXPECT_TRUE(monitors.pullRequests().poller().isActive());
    EXPECT_TRUE(monitors.containers().poller().isActive());
    // Whatever this machine has (gh or not, an engine or not), each monitor's first news redraws
    // its tile, which then says what the monitor says.
    EXPECT_TRUE(test::spinUntil([&] { return redrawn[ids[0]] > 0 && redrawn[ids[1]] > 0; }, 20000));
    EXPECT_EQ(row.tile(ids[1])->accessibleText(), "Containers: " + containersText::summary(monitors.containers().state()));
    EXPECT_NE(monitors.containers().state().phase, ContainersState::Phase::looking);
    // Without gh, or signed out, the card says what to do and offers the command to paste.
    {
        std::unique_ptr<QWidget> card(row.tile(ids[0])->makeCard());
        const PullRequestsState& state = monitors.pullRequests().state();
        bool toSignIn = state.phase == PullRequestsState::Phase::noClient || state.failure == GitHubFailure::signedOut;
        auto* copy = named<QPushButton>(*card, "Copy “gh auth login”");
        ASSERT_TRUE(copy);
        EXPECT_EQ(copy->isVisibleTo(card.get()), toSignIn);
        if (state.phase == PullRequestsState::Phase::noClient) {
            EXPECT_TRUE(card->findChild<QLabel*>()->text().contains(QStringLiteral("gh auth login"))) << card->findChild<QLabel*>()->text().toStdString();
        }
    }
    auto listed = [&] {
        const auto& servers = monitors.devServers().servers();
        return servers && std::any_of(servers->begin(), servers->end(), [&](const DevServer& one) { return std::to_string(one.port) == port; });
    };
    ASSERT_TRUE(test::spinUntil(listed, 10000)) << "the Dev Servers tile never heard of port " << port;
    // The ports the user ignores are left out: all but ours, then ours too.
    std::string others;
    for (const DevServer& one : *monitors.devServers().servers())
        if (std::to_string(one.port) != port)
            others += std::to_string(one.port) + ", ";
    widgets.setOption(ids[2], "ignoredPorts", others);
    EXPECT_EQ(row.tile(ids[2])->accessibleText().rfind("Dev Servers: " + port + " · ", 0), 0U) << row.tile(ids[2])->accessibleText();
    widgets.setOption(ids[2], "ignoredPorts", others + port);
    EXPECT_EQ(row.tile(ids[2])->accessibleText(), "Dev Servers: No servers running");

    row.setOnScreen({ ids[1] });
    EXPECT_FALSE(monitors.pullRequests().poller().isActive()) << "a hidden GitHub tile still wants its monitor";
    EXPECT_TRUE(monitors.containers().poller().isActive());
    row.setOnScreen({});
    EXPECT_FALSE(monitors.containers().poller().isActive());
    EXPECT_FALSE(monitors.devServers().poller().isActive());
}

TEST_F(WidgetRowAlone, TheGitHubCardListsThePullRequestsGhAnswersWith)
{
    // gh cannot reach GitHub here: its stand-in answers with a recorded reply.
    Environment base = processEnvironment();
    base["GH_STANDIN_LOG"] = folder.file("arguments");
    base["GH_STANDIN_ANSWER"] = KESTRUNE_TEST_SOURCES "/KestruneKit/GitHub/pull-requests.json";
    monitors.setGitHubRequests(std::make_shared<const GitHubRequests>(
        GitHubRequests { DevToolBox(base), DevTool { "gh", { KESTRUNE_TEST_SOURCES "/helpers/gh" } } }));
    widgets.apply(WidgetPreset { "One", "", "", { WidgetKind::github } });
    Uuid id = widgets.instances()[0].id;
    row.setOnScreen({ id });
    EXPECT_TRUE(test::spinUntil([&] { return monitors.pullRequests().state().phase == PullRequestsState::Phase::loaded; }, 10000));
    const PullRequestsReport& report = *monitors.pullRequests().state().report;
    EXPECT_EQ(row.tile(id)->accessibleText(), "GitHub: " + pullRequestsText::summary(monitors.pullRequests().state(), false));

    std::unique_ptr<QWidget> card(row.tile(id)->makeCard());
    auto* list = card->findChild<QListWidget*>();
    ASSERT_TRUE(list);
    std::vector<std::string> addresses;
    for (int index = 0; index < list->count(); ++index)
        if (auto address = list->item(index)->data(Qt::UserRole).toString(); !address.isEmpty())
            addresses.push_back(address.toStdString());
    // Those to review, then the user's own, each opening its page.
    ASSERT_EQ(addresses.size(), report.review.items.size() + report.mine.items.size());
    EXPECT_EQ(addresses.front(), report.review.items.front().url);
    EXPECT_EQ(addresses.back(), report.mine.items.back().url);
    EXPECT_EQ(list->item(0)->text().toStdString(), pullRequestsText::waitingForReview(report.review.issueCount));
    EXPECT_FALSE(named<QPushButton>(*card, "Copy “gh auth login”")->isVisibleTo(card.get()));
    test::saveCardImages(*card, "card-github");
}

TEST_F(WidgetRowAlone, TheContainersCardListsARealEnginesContainersAndStopsOne)
{
    test::PrivateEngine engine(folder);
    ASSERT_EQ(engine.start(), "") << "the Docker engine could not start";
    std::string command = test::importTestImage(folder, engine);
    test::privateDocker(folder, engine, "run -d --name web --network none" + command);
    auto setup = std::make_shared<ContainerEngineSetup>();
    setup->socketPath = engine.socketPath();
    setup->client = dockerClient(folder.path());
    monitors.setContainerEngine(setup);

    widgets.apply(WidgetPreset { "One", "", "", { WidgetKind::containers } });
    Uuid id = widgets.instances()[0].id;
    row.setOnScreen({ id });
    EXPECT_TRUE(test::spinUntil([&] { return monitors.containers().state().phase == ContainersState::Phase::running; }, 20000));
    std::unique_ptr<QWidget> card(row.tile(id)->makeCard());
    auto* list = card->findChild<QListWidget*>();
    ASSERT_EQ(list->count(), 1);
    EXPECT_TRUE(list->item(0)->text().startsWith(QStringLiteral("web — kestrune-test:1 · Up"))) << list->item(0)->text().toStdString();
    test::saveCardImages(*card, "card-containers");

    list->setCurrentRow(0);
    named<QPushButton>(*card, "Stop")->click();
    EXPECT_TRUE(test::spinUntil([&] { return list->count() == 0; }, 30000)) << "the stopped container is still listed";
    EXPECT_TRUE(card->findChild<QLabel*>()->text().startsWith(QStringLiteral("No Containers Running"))) << card->findChild<QLabel*>()->text().toStdString();
    EXPECT_EQ(row.tile(id)->accessibleText(), "Containers: No containers running");
}

TEST_F(WidgetRowAlone, TheSimulatorsCardStartsAndShutsDownTheChosenDevice)
{
    // The Android SDK's stand-ins, with one virtual device of the test's own.
    ::setenv("ANDROID_HOME", KESTRUNE_TEST_SOURCES "/helpers/android-sdk", 1);
    ::setenv("ANDROID_EMULATOR_HOME", folder.file("android").c_str(), 1);
    folder.write("android/avd/Pixel_8.ini", "path=x\n");
    widgets.apply(WidgetPreset { "One", "", "", { WidgetKind::simulators } });
    Uuid id = widgets.instances()[0].id;
    row.setOnScreen({ id });
    EXPECT_TRUE(test::spinUntil([&] { return row.tile(id)->accessibleText() == "Simulators: 1 device, none running"; }, 10000))
        << row.tile(id)->accessibleText();

    std::unique_ptr<QWidget> card(row.tile(id)->makeCard());
    auto* list = card->findChild<QListWidget*>();
    ASSERT_EQ(list->count(), 1);
    list->setCurrentRow(0);
    named<QPushButton>(*card, "Start")->click();
    auto running = [&](bool wanted) {
        return test::spinUntil([&] {
            monitors.simulators().refresh();
            return list->count() == 1 && list->item(0)->text().endsWith(QStringLiteral("Running")) == wanted;
        }, 10000);
    };
    ASSERT_TRUE(running(true)) << list->item(0)->text().toStdString();
    EXPECT_EQ(row.tile(id)->accessibleText(), "Simulators: Pixel 8 running");
    test::saveCardImages(*card, "card-simulators");
    list->setCurrentRow(0);
    named<QPushButton>(*card, "Shut Down")->click();
    EXPECT_TRUE(running(false)) << list->item(0)->text().toStdString();
    ::unsetenv("ANDROID_HOME");
    ::unsetenv("ANDROID_EMULATOR_HOME");
}

TEST(WidgetTiles, TheAIUsageTileShowsTheTightestLimitAndWantsTheEngineOnlyWhileShown)
{
    test::fixtureWindows();
    test::TemporaryFolder home;
    test::copyFixtureHome(home);
    ManualRuntime runtime(test::fixtureNow());
    AIUsageEngine::Configuration handDriven;
    handDriven.watches = false;
    handDriven.asksCodex = AIUsageAsksCodex::never;
    AIUsageEngine engine(runtime, home.path(), home.file("support"), handDriven);
    WidgetMonitors monitors(runtime);
    monitors.setAIUsage(&engine);
    AIUsageWidget tile(WidgetInstance::make(WidgetKind::aiUsage), monitors);
    int redrawn = 0;
    tile.changed = [&] { ++redrawn; };

    EXPECT_TRUE(engine.description().starts_with("engine idle"));
    tile.setShown(true);
    EXPECT_FALSE(engine.description().starts_with("engine idle"));
    ASSERT_TRUE(runtime.runUntil([&] { return engine.snapshot().counted && !engine.isReadingLimits(); }));
    EXPECT_GT(redrawn, 0);
    EXPECT_EQ(tile.accessibleText(), AIUsageWidget::faceFor(engine.snapshot(), runtime.now()).caption.toStdString() + ": "
                                         + AIUsageWidget::faceFor(engine.snapshot(), runtime.now()).value.toStdString());
    tile.setShown(false);
    EXPECT_TRUE(engine.description().starts_with("engine idle")) << "a hidden tile kept the engine running";

    // Of two tools, the limit nearer its end is the one shown, in its level's colour.
    AIUsageSnapshot snapshot;
    snapshot.counted = true;
    AIUsageReport claude;
    claude.limits.push_back({ 42, 300, runtime.now() + std::chrono::hours(2), std::nullopt });
    AIUsageReport codex;
    codex.tool = AIUsageTool::codex;
    codex.limits.push_back({ 93, 10080, runtime.now() + std::chrono::hours(30), std::nullopt });
    snapshot.reports = { claude, codex };
    auto face = AIUsageWidget::faceFor(snapshot, runtime.now());
    EXPECT_EQ(face.caption.toStdString().rfind(std::string(shortName(AIUsageTool::codex)), 0), 0U) << face.caption.toStdString();
    EXPECT_NE(face.value.toStdString().find("93"), std::string::npos) << face.value.toStdString();
    EXPECT_GT(face.state.red(), 200);
    EXPECT_EQ(AIUsageWidget::faceFor(AIUsageSnapshot { {}, false, true, false, {} }, runtime.now()).value.toStdString(), "No AI tools found");

    // The card connects Claude Code's status line on a second press, and disconnects it; the
    // settings it edits keep what the user had.
    home.write(".claude/settings.json", "{\n  \"theme\": \"dark\"\n}\n");
    monitors.setClaudeBridge(ClaudeBridge::Place { home.path(), home.file("support"), "/bin/true" });
    std::unique_ptr<QWidget> card(tile.makeCard());
    auto* connect = named<QPushButton>(*card, "Connect Claude Code…");
    ASSERT_TRUE(connect);
    connect->click();
    EXPECT_EQ(connect->text(), QStringLiteral("Connect"));
    EXPECT_EQ(test::readFile(home.file(".claude/settings.json")).find("statusLine"), std::string::npos) << "connected on the first press";
    EXPECT_TRUE(named<QLabel>(*card, "Claude Code’s status line")->text().startsWith(QStringLiteral("Connect Claude Code?")));
    connect->click();
    std::string settings = test::readFile(home.file(".claude/settings.json"));
    EXPECT_NE(settings.find("statusLine"), std::string::npos) << settings;
    EXPECT_NE(settings.find("\"theme\": \"dark\""), std::string::npos) << settings;
    EXPECT_EQ(connect->text(), QStringLiteral("Disconnect Claude Code"));
    test::saveCardImages(*card, "card-ai-usage");
    connect->click();
    EXPECT_EQ(test::readFile(home.file(".claude/settings.json")).find("statusLine"), std::string::npos);
}

TEST(WidgetTiles, TheGitFaceNamesTheFolderTheStandingAndWhatWentWrong)
{
    auto face = GitWidget::faceFor(std::nullopt, nullptr);
    EXPECT_EQ(face.value.toStdString(), "Choose a folder");
    face = GitWidget::faceFor("/home/me/src/dock", nullptr);
    EXPECT_EQ(face.caption.toStdString(), "dock");
    EXPECT_EQ(face.value.toStdString(), "Reading…");
    RepositoryState missing { "/home/me/src/dock", repositoryFailure(RepositoryProblem::missing), Date {} };
    face = GitWidget::faceFor("/home/me/src/dock", &missing);
    EXPECT_EQ(face.value.toStdString(), "Not found");
    EXPECT_GT(face.state.red(), 200);
}

TEST(WidgetTiles, TheTimestampTicksOnTheSecondOnlyWhileShown)
{
    QtRuntime runtime;
    TimestampWidget tile(WidgetInstance::make(WidgetKind::timestamp), runtime);
    int ticks = 0;
    tile.changed = [&] { ++ticks; };
    EXPECT_EQ(TimestampWidget::unixSeconds(Date(std::chrono::milliseconds(1'700'000'000'999))), 1'700'000'000);
    tile.setShown(true);
    EXPECT_TRUE(test::spinUntil([&] { return ticks >= 2; }, 3000)) << "no tick in a second";
    tile.setShown(false);
    int hidden = ticks;
    test::spinUntil([] { return false; }, 1300);
    EXPECT_EQ(ticks, hidden) << "a hidden tile ticked";
}

} // namespace
} // namespace kestrune
