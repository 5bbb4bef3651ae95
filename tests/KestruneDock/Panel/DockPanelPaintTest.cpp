#include <chrono>
#include <filesystem>
#include <thread>

#include <QIcon>
#include <QImage>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QUrl>
#include <QAbstractButton>
#include <QPainter>
#include <gtest/gtest.h>

#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/Dock/DockStore.h"
#include "KestruneDock/Panel/DockPanel.h"
#include "KestruneDock/Panel/DockPanelController.h"
#include "KestruneDock/Panel/TileRasterQt.h"
#include "KestruneKit/Preferences/Preferences.h"
#include "tests/helpers/FakeWorkspace.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

// A theme of two flat squares, made here so that no machine's own theme decides a pixel.
void makeIconTheme(const test::TemporaryFolder& folder)
{
    folder.write("icons/kestrune-test/index.theme",
        "[Icon Theme]\nName=kestrune-test\nDirectories=scalable/apps\n\n"
        "[scalable/apps]\nSize=64\nMinSize=8\nMaxSize=512\nType=Scalable\n");
    auto square = [](const char* colour) {
        return std::string("<svg xmlns='http://www.w3.org/2000/svg' width='64' height='64'>"
                           "<rect width='64' height='64' fill='") + colour + "'/></svg>";
    };
    folder.write("icons/kestrune-test/scalable/apps/kestrune-red.svg", square("#ff0000"));
    folder.write("icons/kestrune-test/scalable/apps/kestrune-blue.svg", square("#0000ff"));
    QIcon::setThemeSearchPaths({ QString::fromStdString(folder.path() + "/icons") });
    QIcon::setThemeName(QStringLiteral("kestrune-test"));
}

void save(const QImage& image, const std::string& name)
{
    std::filesystem::create_directories(KESTRUNE_SCREENS);
    image.save(QString::fromStdString(std::string(KESTRUNE_SCREENS) + "/" + name + ".png"));
}

class DockPanelPaint : public ::testing::Test {
protected:
    DockPanelPaint()
    {
        makeIconTheme(folder);
        workspace.suffix = ".desktop";
        for (const char* app : { "/apps/red.desktop", "/apps/blue.desktop" })
            workspace.files.insert(app);
        workspace.icons["/apps/red.desktop"] = { "kestrune-red", false };
        workspace.icons["/apps/blue.desktop"] = { "kestrune-blue", false };
        workspace.running = { { 42, "/apps/red.desktop", true } };
        preferences.set(DockStore::pinnedKey, std::vector<std::string> { "/apps/red.desktop", "/apps/blue.desktop" });
        preferences.set("iconSize", 48.0);
        preferences.set("magnifiedSize", 96.0);
        store = std::make_unique<DockStore>(preferences, workspace, runtime, &raster);
        controller = std::make_unique<DockPanelController>(preferences, *store, runtime);
        controller->setTranslucent(true);
    }

    // The centre of a slot in the window as placed now.
    QPointF center(size_t slot, double depth) const
    {
        const auto& frame = controller->layout().frames()[slot];
        auto [x, y] = controller->placement().toWindow(controller->windowRect(), frame.tile.axisCenter(), depth);
        return { x, y };
    }

    // The window drawn at twice the pixels, as on a HiDPI screen.
    QImage renderedTwice() const
    {
        auto window = controller->windowRect();
        QImage image(static_cast<int>(window.width * 2), static_cast<int>(window.height * 2), QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(2);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        controller->paint(painter, 2);
        return image;
    }

    // The same on the desktop, as pointer events give it.
    QPointF onDesktop(size_t slot, double depth) const
    {
        auto window = controller->windowRect();
        return center(slot, depth) + QPointF(window.x, window.y);
    }

    test::TemporaryFolder folder;
    JSONFilePreferences preferences { folder.file("app.quillane.dock.json") };
    test::FakeWorkspace workspace;
    QtRuntime runtime;
    TileRasterQt raster;
    std::unique_ptr<DockStore> store;
    std::unique_ptr<DockPanelController> controller;
};

QColor at(const QImage& image, QPointF point)
{
    double ratio = image.devicePixelRatio();
    return image.pixelColor(static_cast<int>(point.x() * ratio), static_cast<int>(point.y() * ratio));
}

TEST_F(DockPanelPaint, DrawsTilesIndicatorsAndDividersOnTheBar)
{
    // Pinned red (running), pinned blue, divider, trash.
    ASSERT_EQ(controller->items().size(), 4u);
    EXPECT_EQ(controller->items()[2].slot.kind, DockSlotKind::divider);
    QImage image = controller->panel().render();
    save(image, "panel-resting-1x");
    const DockRowMetrics& metrics = controller->layout().metrics();
    EXPECT_EQ(image.size(), QSize(static_cast<int>(controller->layout().restingLength()), static_cast<int>(metrics.thickness())));

    QColor red = at(image, center(0, metrics.padding + 24));
    EXPECT_GT(red.red(), 240);
    EXPECT_LT(red.blue(), 20);
    QColor blue = at(image, center(1, metrics.padding + 24));
    EXPECT_GT(blue.blue(), 240);
    EXPECT_LT(blue.red(), 20);

    // The running app has its dot at the edge; the other has only the bar there.
    QColor dot = at(image, center(0, metrics.padding / 2));
    EXPECT_GT(dot.lightness(), 200);
    QColor noDot = at(image, center(1, metrics.padding / 2));
    EXPECT_LT(noDot.lightness(), 80);
    EXPECT_GT(noDot.alpha(), 150) << "the bar is there, translucent";
    EXPECT_LT(noDot.alpha(), 255);

    // The divider is a light hairline across the dark bar.
    QPointF line = center(2, metrics.thickness() / 2);
    int lightest = 0;
    for (double dx : { -1.0, 0.0, 1.0 })
        lightest = std::max(lightest, at(image, line + QPointF(dx, 0)).lightness());
    EXPECT_GT(lightest, noDot.lightness() + 20);

    // Rounded ends: the very corner is see-through.
    EXPECT_EQ(image.pixelColor(0, 0).alpha(), 0);

    // showIndicators off: no dot.
    preferences.set("showIndicators", false);
    image = controller->panel().render();
    EXPECT_LT(at(image, center(0, metrics.padding / 2)).lightness(), 80);
}

TEST_F(DockPanelPaint, MagnifiesUnderThePointerWithTheNameAboveAndRestsWhenItLeaves)
{
    const DockRowMetrics& metrics = controller->layout().metrics();
    QPointF onBlue = onDesktop(1, metrics.thickness() / 2);
    controller->pointerMoved(onBlue);
    EXPECT_EQ(controller->raise(), DockPanelRaise::raised);
    ASSERT_EQ(controller->hovered(), 1u);
    EXPECT_DOUBLE_EQ(controller->layout().frames()[1].scale, 2.0);

    QImage image = controller->panel().render();
    save(image, "panel-magnified-1x");
    EXPECT_EQ(image.height(), static_cast<int>(std::round(controller->layout().raisedDepth())));
    // The magnified tile is blue a whole icon above the resting bar.
    EXPECT_GT(at(image, center(1, metrics.padding + 80)).blue(), 240);
    // The name's label stands above it: opaque dark, with light text somewhere in it.
    QPointF labelCenter = center(1, metrics.padding + 96 + 8 + 12);
    EXPECT_GT(at(image, labelCenter + QPointF(0, -9)).alpha(), 200);
    bool text = false;
    for (int dy = -4; dy <= 4 && !text; ++dy)
        for (int dx = -30; dx <= 30 && !text; ++dx)
            text = at(image, labelCenter + QPointF(dx, dy)).lightness() > 150;
    EXPECT_TRUE(text) << "the label has its name written in it";

    // Above the tiles and off them the pointer has left the dock: the window rests again.
    controller->pointerMoved(onDesktop(1, metrics.padding + 140) + QPointF(200, 0));
    EXPECT_EQ(controller->raise(), DockPanelRaise::resting);
    EXPECT_EQ(controller->layout().frames()[1].scale, 1.0);
    controller->pointerMoved(onBlue);
    controller->pointerLeft();
    EXPECT_EQ(controller->raise(), DockPanelRaise::resting);
    EXPECT_FALSE(controller->hovered());
}

TEST_F(DockPanelPaint, APointerMoveRepaintsOnlyWhatChangedAndThatIsAllThatChanged)
{
    // More tiles than the magnification reaches, so that some stay where they are.
    std::vector<std::string> pinned;
    for (int index = 0; index < 9; ++index) {
        std::string path = "/apps/app" + std::to_string(index) + ".desktop";
        workspace.files.insert(path);
        workspace.icons[path] = { index % 2 ? "kestrune-red" : "kestrune-blue", false };
        pinned.push_back(path);
    }
    preferences.set(DockStore::pinnedKey, pinned);
    controller.reset();
    store = std::make_unique<DockStore>(preferences, workspace, runtime, &raster);
    controller = std::make_unique<DockPanelController>(preferences, *store, runtime);
    ASSERT_EQ(controller->items().size(), 13u) << "nine pinned, the running app and the trash";
    for (bool translucent : { true, false }) {
        controller->setTranslucent(translucent);
        double depth = controller->layout().metrics().thickness() / 2;
        controller->pointerMoved(onDesktop(0, depth));
        ASSERT_EQ(controller->raise(), DockPanelRaise::raised);
        double left = onDesktop(0, depth).x(), right = onDesktop(8, depth).x();
        double largest = 0;
        for (double x = left; x <= right; x += 7) {
            auto before = controller->picture();
            QImage shown = controller->panel().render();
            controller->pointerMoved(QPointF(x, onDesktop(0, depth).y()));
            auto changed = DockPanelController::changes(before, controller->picture());
            ASSERT_TRUE(changed) << "the window stayed the same";
            QImage full = controller->panel().render();
            // The old picture with only the changed parts painted anew is the new picture.
            QPainter painter(&shown);
            painter.setClipRegion(*changed);
            painter.setCompositionMode(QPainter::CompositionMode_Source);
            painter.drawImage(QPointF(0, 0), full);
            painter.end();
            ASSERT_EQ(shown, full) << "a change outside the repainted parts at x = " << x << (translucent ? "" : ", opaque");
            // Every tile moves, but the empty space above the small ones is left alone.
            double area = 0;
            for (const QRect& rect : *changed)
                area += double(rect.width()) * rect.height();
            largest = std::max(largest, area / (double(full.width()) * full.height()));
        }
        EXPECT_LT(largest, 0.75) << "moves repainted about the whole window";
        // Not moving repaints nothing.
        auto still = controller->picture();
        EXPECT_TRUE(DockPanelController::changes(still, controller->picture())->isEmpty());
        controller->pointerLeft();
    }
}

TEST_F(DockPanelPaint, MenusHoldTheRowStillAndCarryOutWhatIsChosen)
{
    auto find = [](QMenu* menu, const QString& title) -> QAction* {
        for (QAction* action : menu->actions()) {
            if (action->text() == title)
                return action;
            if (action->menu())
                for (QAction* inner : action->menu()->actions())
                    if (inner->text() == title)
                        return inner;
        }
        return nullptr;
    };
    double depth = controller->layout().metrics().thickness() / 2;
    std::string quit;
    DockDesktopServices services;
    services.windows = [](const std::string&) { return std::vector<std::pair<uint32_t, std::string>> { { 9, "Red’s window" } }; };
    services.quit = [&](const std::string& path) { quit = path; };
    controller->setDesktopServices(services);

    // The running red app's tile: its window, its options, and Quit, which asks it to close.
    controller->contextMenu(onDesktop(0, depth));
    QMenu* menu = controller->openMenu();
    ASSERT_TRUE(menu);
    EXPECT_TRUE(store->isMenuOpen()) << "the row holds still under the menu";
    ASSERT_TRUE(find(menu, QStringLiteral("Red’s window")));
    ASSERT_TRUE(find(menu, QStringLiteral("Quit")));
    find(menu, QStringLiteral("Quit"))->trigger();
    EXPECT_EQ(quit, "/apps/red.desktop");
    QAction* keep = find(menu, QStringLiteral("Keep in Dock"));
    ASSERT_TRUE(keep);
    EXPECT_TRUE(keep->isChecked());
    menu->close();
    EXPECT_FALSE(store->isMenuOpen());

    // The blue tile's "Keep in Dock" unticked: it is no longer pinned.
    controller->contextMenu(onDesktop(1, depth));
    menu = controller->openMenu();
    ASSERT_TRUE(menu);
    EXPECT_FALSE(find(menu, QStringLiteral("Quit"))) << "a tile that is not running has nothing to quit";
    find(menu, QStringLiteral("Keep in Dock"))->trigger();
    menu->close();
    EXPECT_EQ(preferences.stringListValue(DockStore::pinnedKey), std::vector<std::string> { "/apps/red.desktop" });

    // The divider: the dock's own menu, whose choices are kept in the preferences.
    size_t divider = 0;
    while (divider < controller->items().size() && controller->items()[divider].slot.kind != DockSlotKind::divider)
        ++divider;
    ASSERT_LT(divider, controller->items().size());
    controller->contextMenu(onDesktop(divider, depth));
    menu = controller->openMenu();
    ASSERT_TRUE(menu);
    find(menu, QStringLiteral("Turn Magnification Off"))->trigger();
    menu->close();
    EXPECT_EQ(preferences.boolValue(DockPreferences::magnificationKey), false);
    controller->contextMenu(onDesktop(divider, depth));
    find(controller->openMenu(), QStringLiteral("Right"))->trigger();
    controller->openMenu()->close();
    EXPECT_EQ(preferences.stringValue(DockPreferences::edgeKey), "right");
}

TEST_F(DockPanelPaint, TheTrashShowsWhenItHoldsSomethingAndAsksBeforeItEmpties)
{
    double depth = controller->layout().metrics().thickness() / 2;
    size_t trash = controller->items().size() - 1;
    ASSERT_EQ(controller->items()[trash].slot.kind, DockSlotKind::trash);
    int emptied = 0;
    DockDesktopServices services;
    services.emptyTrash = [&] { ++emptied; return std::string(); };
    controller->setDesktopServices(services);
    auto emptyTrash = [&] {
        controller->contextMenu(onDesktop(trash, depth));
        QMenu* menu = controller->openMenu();
        for (QAction* action : menu ? menu->actions() : QList<QAction*> {})
            if (action->text() == QStringLiteral("Empty Trash"))
                return action;
        return static_cast<QAction*>(nullptr);
    };

    QImage empty = controller->panel().render();
    ASSERT_TRUE(emptyTrash());
    EXPECT_FALSE(emptyTrash()->isEnabled()) << "nothing to empty";
    controller->openMenu()->close();

    controller->setTrashItems(2);
    QImage full = controller->panel().render();
    QRect tile = QRectF(center(trash, depth) - QPointF(20, 20), QSizeF(40, 40)).toAlignedRect();
    EXPECT_NE(empty.copy(tile), full.copy(tile)) << "a full trash looks like an empty one";
    save(full, "panel-trash-full-1x");

    QAction* action = emptyTrash();
    ASSERT_TRUE(action && action->isEnabled());
    action->trigger();
    controller->openMenu()->close();
    QMessageBox* question = controller->openQuestion();
    ASSERT_TRUE(question) << "emptied without asking";
    EXPECT_EQ(question->informativeText().toStdString(), "The 2 items in the Trash will be deleted for good. You can’t undo this.");
    for (QAbstractButton* button : question->buttons())
        if (button->text() == QStringLiteral("Cancel"))
            button->click();
    EXPECT_EQ(emptied, 0) << "Cancel emptied the trash";
    emptyTrash()->trigger();
    controller->openMenu()->close();
    ASSERT_TRUE(controller->openQuestion());
    for (QAbstractButton* button : controller->openQuestion()->buttons())
        if (button->text() == QStringLiteral("Empty Trash"))
            button->click();
    EXPECT_EQ(emptied, 1);
}

TEST_F(DockPanelPaint, DrawsAnAppsCountAndProgressOnItsTile)
{
    double depth = controller->layout().metrics().thickness() / 2;
    QImage plain = controller->panel().render();
    DockBadge badge;
    badge.count = 12;
    badge.progress = 0.5;
    controller->setBadge("/apps/blue.desktop", badge);
    ASSERT_EQ(controller->items()[1].badge, badge);
    QImage badged = controller->panel().render();
    save(badged, "panel-badge-1x");
    // The count's red pill at the tile's top right, over the blue icon.
    QPointF corner = center(1, depth) + QPointF(16, -18);
    QColor pill = at(badged, corner);
    EXPECT_GT(pill.red(), 180);
    EXPECT_LT(pill.blue(), 120) << "no badge at the tile's corner";
    // The progress bar's light fill on its left half, and its dark track on the right.
    EXPECT_GT(at(badged, center(1, depth) + QPointF(-12, 17)).lightness(), 200);
    EXPECT_LT(at(badged, center(1, depth) + QPointF(12, 17)).lightness(), 80);
    controller->setBadge("/apps/blue.desktop", DockBadge {});
    EXPECT_TRUE(controller->items()[1].badge.empty());
    EXPECT_EQ(controller->panel().render(), plain) << "the badge stayed after it was taken away";
}

TEST_F(DockPanelPaint, AStackShownAsAPileFansItsNewestItemsAndFollowsTheFolder)
{
    std::string papers = folder.file("Papers");
    std::filesystem::create_directories(papers);
    auto picture = [&](const char* name, QColor colour) {
        QImage image(120, 90, QImage::Format_RGB32);
        image.fill(colour);
        ASSERT_TRUE(image.save(QString::fromStdString(papers + "/" + name)));
        // Items are told apart by when they came; the file system keeps that to the nanosecond.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    };
    folder.write("Papers/notes.txt", "older than the pictures\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    picture("green.png", Qt::green);
    store->addStack(papers);
    double depth = controller->layout().metrics().thickness() / 2;
    size_t stack = controller->items().size() - 2;
    ASSERT_EQ(controller->items()[stack].slot.kind, DockSlotKind::stack);
    EXPECT_TRUE(controller->items()[stack].fanned.empty()) << "a stack shows its folder until asked";
    QImage asFolder = controller->panel().render();

    // "Display as" › "Stack" from the tile's menu: the newest item lies on top.
    controller->contextMenu(onDesktop(stack, depth));
    ASSERT_TRUE(controller->openMenu());
    QAction* pile = nullptr;
    for (QAction* group : controller->openMenu()->actions())
        if (group->text() == QStringLiteral("Display as") && group->menu())
            for (QAction* choice : group->menu()->actions())
                if (choice->text() == QStringLiteral("Stack"))
                    pile = choice;
    ASSERT_TRUE(pile);
    pile->trigger();
    controller->openMenu()->close();
    EXPECT_EQ(store->stackOptions().at(papers).at("display"), "stack");
    EXPECT_EQ(controller->items()[stack].fanned, (std::vector<std::string> { papers + "/green.png", papers + "/notes.txt" }));
    QImage fanned = controller->panel().render();
    save(fanned, "panel-stack-pile-1x");
    save(renderedTwice(), "panel-stack-pile-2x");
    QColor top = at(fanned, center(stack, depth));
    EXPECT_GT(top.green(), 200);
    EXPECT_LT(top.red(), 80) << "the newest picture is not on top";
    EXPECT_NE(at(asFolder, center(stack, depth)), top);

    // A picture added to the folder goes on top of the pile.
    picture("red.png", Qt::red);
    EXPECT_TRUE(test::spinUntil([&] { return at(controller->panel().render(), center(stack, depth)).red() > 200; }))
        << "the pile did not follow the folder";
    EXPECT_EQ(controller->items()[stack].fanned.size(), StackFans::fanned);
}

TEST_F(DockPanelPaint, TilesMakingRoomForADropGlideThereFromWhereTheyWere)
{
    double depth = controller->layout().metrics().thickness() / 2;
    QPointF blueBefore = onDesktop(1, depth);
    auto blueAt = [&](QPointF desktop) {
        auto window = controller->windowRect();
        QColor seen = at(controller->panel().render(), desktop - QPointF(window.x, window.y));
        return seen.blue() > 200 && seen.red() < 60;
    };
    // An app's entry from a file manager, over the left half of the blue tile: room opens before it.
    QMimeData entry;
    entry.setUrls({ QUrl::fromLocalFile(QStringLiteral("/apps/green.desktop")) });
    EXPECT_EQ(controller->dragOver(blueBefore - QPointF(8, 0), entry), Qt::CopyAction);
    ASSERT_TRUE(controller->items()[1].placeholder);
    EXPECT_TRUE(blueAt(blueBefore)) << "the blue tile jumped instead of gliding";
    QPointF blueAfter = onDesktop(2, depth);
    // The row grows about its middle: the blue tile goes half the room to the right.
    EXPECT_GT(blueAfter.x(), blueBefore.x() + 20);
    EXPECT_TRUE(test::spinUntil([&] { return blueAt(blueAfter) && !blueAt(blueBefore); }, 2000)) << "the glide never ended";
    save(controller->panel().render(), "panel-room-made-1x");
    controller->dragLeft();
}

TEST_F(DockPanelPaint, DrawsSharplyAtTwiceThePixelsAndOpaqueWithoutACompositor)
{
    const DockRowMetrics& metrics = controller->layout().metrics();
    QImage double2 = renderedTwice();
    save(double2, "panel-resting-2x");
    // Drawn at 96 device pixels, the icon's edge is a clean step: one pixel in, full red; one
    // out, none of it.
    const auto& tile = controller->layout().frames()[0].tile;
    QPointF inside = center(0, metrics.padding + 24);
    int leftEdge = static_cast<int>(std::round((tile.axis) * 2));
    int y = static_cast<int>(inside.y() * 2);
    EXPECT_GT(double2.pixelColor(leftEdge + 1, y).red(), 240);
    EXPECT_LT(double2.pixelColor(leftEdge - 2, y).red(), 60);
    EXPECT_GT(at(double2, center(0, metrics.padding / 2)).lightness(), 200) << "the dot at 2x";

    // Without a compositor nothing may be see-through: the bar is opaque edge to edge.
    controller->setTranslucent(false);
    QImage opaque = controller->panel().render();
    save(opaque, "panel-opaque-1x");
    EXPECT_EQ(opaque.pixelColor(0, 0).alpha(), 255);
    EXPECT_EQ(opaque.pixelColor(opaque.width() - 1, opaque.height() - 1).alpha(), 255);
}

} // namespace
} // namespace kestrune
