#include <chrono>
#include <filesystem>

#include <QApplication>
#include <QListWidget>
#include <QMimeData>
#include <QUrl>
#include <gtest/gtest.h>

#include "KestruneDock/Panel/StackPopup.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using Names = std::vector<std::string>;

TEST(StackPopup, ListsTheFolderInTheStacksOrderAndFollowsIt)
{
    test::TemporaryFolder folder;
    folder.write("b.txt", "b");
    folder.write("a.png", "a");
    folder.write("Work/plan.txt", "plan");
    folder.write(".hidden", "");
    auto age = [&](const char* name, int minutes) {
        std::filesystem::last_write_time(folder.file(name), std::filesystem::file_time_type::clock::now() - std::chrono::minutes(minutes));
    };
    age("b.txt", 1);
    age("a.png", 30);
    age("Work", 60);

    bool closed = false;
    auto* byName = new StackPopup(folder.path(), {}, QRect(600, 740, 52, 52), DockEdge::bottom, [&] { closed = true; });
    byName->show();
    EXPECT_EQ(byName->names(), (Names { "a.png", "b.txt", "Work" })) << "by name, hidden files left out";
    EXPECT_LT(byName->geometry().bottom(), 740) << "above its tile";

    // It follows the folder while it is open.
    folder.write("c.txt", "c");
    EXPECT_TRUE(test::spinUntil([&] { return byName->names() == Names { "a.png", "b.txt", "c.txt", "Work" }; }));
    std::filesystem::remove(folder.file("b.txt"));
    EXPECT_TRUE(test::spinUntil([&] { return byName->names() == Names { "a.png", "c.txt", "Work" }; }));
    byName->close();
    EXPECT_TRUE(test::spinUntil([&] { return closed; })) << "its tile is told it closed";

    age("c.txt", 5);
    StackPopup byDate(folder.path(), { { "sort", "modified" }, { "view", "list" } }, QRect(0, 300, 52, 52), DockEdge::left, {});
    EXPECT_EQ(byDate.names(), (Names { "c.txt", "a.png", "Work" })) << "the newest first";
    EXPECT_GT(byDate.geometry().left(), 52) << "beside a tile on the left edge";
    StackPopup byKind(folder.path(), { { "sort", "kind" } }, QRect(600, 740, 52, 52), DockEdge::bottom, {});
    EXPECT_EQ(byKind.names(), (Names { "Work", "a.png", "c.txt" })) << "folders first, then by kind";

    // Dragged out, an item carries its file.
    auto* list = byKind.findChild<QListWidget*>();
    ASSERT_TRUE(list);
    // The list's model asks the view for the data of a drag.
    std::unique_ptr<QMimeData> data(list->model()->mimeData({ list->model()->index(1, 0) }));
    ASSERT_EQ(data->urls().size(), 1);
    EXPECT_EQ(data->urls().front().toLocalFile().toStdString(), folder.file("a.png"));
}

} // namespace
} // namespace kestrune
