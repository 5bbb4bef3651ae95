#pragma once
// A stack's popup: the folder's items as a grid or a list above (or beside) its tile, sorted as
// the stack's options say, following the folder while it is open. A click opens an item with its
// default app, an item dragged out carries its file, and "Open in Files" opens the folder.
//
// A stack's options are kept per folder under "stackOptions" (DockStore), as strings:
//   "view"  "grid" (the default) or "list"
//   "sort"  "name" (the default), "added", "modified" or "kind"
//   "display"  "folder" (the default): the tile shows the folder; "stack": its newest items fanned
//
// TYPICAL USAGE
//   auto* popup = new StackPopup(folder, options, tileRect, edge, [] { ... closed ... });
//   popup->show();
//
// Main thread only. The folder is read when the popup opens and again when it changes, and is
// watched only while the popup is open.

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <QFrame>
#include <QRect>

#include "KestruneDock/Dock/DockEdge.h"

class QFileSystemWatcher;
class QLabel;
class QListWidget;

namespace kestrune {

class StackPopup final : public QFrame {
public:
    // More than this many items are left out of the popup: the folder is one click away.
    static constexpr int itemLimit = 400;

    StackPopup(std::string folder, std::map<std::string, std::string> options, QRect tile, DockEdge edge,
               std::function<void()> closed);
    ~StackPopup() override;

    // The names shown, in their order.
    [[nodiscard]] std::vector<std::string> names() const;
    // Reads the folder again (it is also read whenever it changes).
    void reload();

protected:
    void hideEvent(QHideEvent* event) override;

private:
    void placeBy(QRect tile, DockEdge edge);

    std::string folder_;
    std::map<std::string, std::string> options_;
    std::function<void()> closed_;
    QListWidget* items_ = nullptr;
    QLabel* empty_ = nullptr;
    QFileSystemWatcher* watcher_ = nullptr;
};

} // namespace kestrune
