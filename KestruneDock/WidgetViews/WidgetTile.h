#pragma once
// OVERVIEW
// One widget's tile in the dock row: painted by the panel into the slot the row gives it (no
// child widgets in the row), as long along the dock as its face needs. A tile works only while it
// is shown: then it ticks, or holds its monitor's want; hidden (behind a page, under a hidden
// dock) it costs nothing.
//
// TYPICAL USAGE
//   auto tile = makeWidgetTile(instance, monitors);
//   tile->changed = [&] { repaint(instance.id); };
//   tile->setShown(true);
//   tile->paint(painter, rect, context);
//
// Main thread only.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <QColor>
#include <QFont>
#include <QPointF>
#include <QRectF>
#include <QString>

#include "KestruneDock/Widgets/WidgetStore.h"

class QPainter;
class QWidget;

namespace kestrune {

class WidgetMonitors;

struct WidgetPaintContext {
    double devicePixelRatio = 1;
    // Behind the bar lie the desktop's pixels (a compositor blends them) or our own.
    bool translucent = true;
};

class WidgetTile {
public:
    explicit WidgetTile(WidgetInstance instance) : instance_(std::move(instance)) {}
    virtual ~WidgetTile() = default;
    WidgetTile(const WidgetTile&) = delete;
    WidgetTile& operator=(const WidgetTile&) = delete;

    [[nodiscard]] const WidgetInstance& instance() const { return instance_; }
    // Its face or options changed.
    virtual void setInstance(WidgetInstance instance);

    // Along the dock, in points, for a tile `iconSize` deep.
    [[nodiscard]] virtual double length(double iconSize) const = 0;
    virtual void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const = 0;
    // What a screen reader says for the tile.
    [[nodiscard]] virtual std::string accessibleText() const;
    // The card a press on the tile opens: a new widget each time, or none for a tile without one.
    // While it lives it wants its monitor as the tile does.
    [[nodiscard]] virtual QWidget* makeCard() { return nullptr; }
    // A press on the face at `within` (0 to 1 across and down the tile): true when the tile acted
    // on it itself (a mute, a switch of desktop) instead of opening its card.
    virtual bool pressed(QPointF /*within*/) { return false; }
    // A turn of the wheel over the tile, in steps (positive away from the user): true when used.
    virtual bool scrolled(double /*steps*/) { return false; }

    // On screen or not; a tile wants its monitor, and ticks, only while shown.
    void setShown(bool shown);
    [[nodiscard]] bool isShown() const { return shown_; }

    // The tile looks different now: it is drawn (and measured) again.
    std::function<void()> changed;
    // Writes one of the widget's options to the store, for a card's own controls.
    std::function<void(const std::string& key, const std::string& value)> setOption;

protected:
    virtual void shownChanged() {}
    void tellChanged() const
    {
        if (changed)
            changed();
    }

    WidgetInstance instance_;
    bool shown_ = false;
};

// What a two-line tile says: a small caption, the value under it, and a dot of the state's colour
// before the caption, when it has one.
struct WidgetLines {
    QString caption;
    QString value;
    std::optional<QColor> state;
    // Read out, and shown on hover, in place of a value that is a short form of it.
    QString whole = {};
};

// A tile whose face is its two lines on the plate: as long as they need between two icons and
// `longest` icons (a longer text ends in an ellipsis), and read out as "caption: value".
class LinesTile : public WidgetTile {
public:
    LinesTile(WidgetInstance instance, double longest) : WidgetTile(std::move(instance)), longest_(longest) {}

    [[nodiscard]] virtual WidgetLines lines() const = 0;

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;

private:
    double longest_;
};

// The colours of a dot: all is well, something waits for the user, something is wrong, not known.
namespace stateColour {
[[nodiscard]] QColor good();
[[nodiscard]] QColor waiting();
[[nodiscard]] QColor trouble();
[[nodiscard]] QColor unknown();
} // namespace stateColour

// The plate every tile is drawn on, and its two lines of text: a small caption and the value.
namespace widgetface {

[[nodiscard]] QFont captionFont(double iconSize);
[[nodiscard]] QFont valueFont(double iconSize);
// Room on each side of the text.
[[nodiscard]] double inset(double iconSize);
void paintPlate(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context);
// The caption above, the value below, both from the plate's start; a dot of `state` colour
// before the caption when given.
void paintLines(QPainter& painter, const QRectF& tile, const QString& caption, const QString& value,
                std::optional<QColor> state = std::nullopt);
// A bar along the foot of the plate, filled by `fraction` in `colour`; drawn only where a tile is
// deep enough to have room below its two lines.
void paintFootBar(QPainter& painter, const QRectF& tile, double fraction, const QColor& colour);
// A problem's sentence as a tile has room for it: its first clause ("UPower isn’t running" of
// "UPower isn’t running, so batteries can’t be read"); the card says the whole.
[[nodiscard]] QString shortProblem(const QString& sentence);
// How long a tile with these two lines is.
[[nodiscard]] double linesLength(double iconSize, const QString& caption, const QString& value, bool withState);

} // namespace widgetface

// The tile of an instance, its kind's own where there is one.
[[nodiscard]] std::unique_ptr<WidgetTile> makeWidgetTile(const WidgetInstance& instance, WidgetMonitors& monitors);

} // namespace kestrune
