#pragma once
// OVERVIEW
// What a screen reader finds in the dock's window, which paints its row and has no child widgets:
// a button for each app, stack and the trash, and the widget tiles gathered in one group named
// for its page ("Widgets, page 2 of 3"), each tile read as its face says. Pressing one does what
// a click does.
//
// TYPICAL USAGE
//   QAccessible::installFactory(dockPanelAccessibleFactory);   // once, before the panel shows
//
// Main thread only.

#include <QString>

class QAccessibleInterface;
class QObject;

namespace kestrune {

[[nodiscard]] QAccessibleInterface* dockPanelAccessibleFactory(const QString& className, QObject* object);

} // namespace kestrune
