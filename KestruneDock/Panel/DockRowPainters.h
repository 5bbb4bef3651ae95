#pragma once
// One small painter per kind of slot in the dock row. The panel lays the row out through the
// core's DockRowLayout and hands each painter its slot's rectangle in window coordinates; a
// painter draws inside it and keeps its own cache of images per size and pixel ratio. Widget
// tiles join the row the same way, with painters of their own.
//
// Main thread only.

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <QColor>
#include <QImage>
#include <QPointF>
#include <QRectF>

#include "KestruneDock/Dock/DockBadge.h"
#include "KestruneDock/Dock/DockRowLayout.h"

class QPainter;

namespace kestrune {

class DockStore;

// What one slot shows, as the panel last read it from the stores.
struct DockRowItem {
    DockRowSlot slot;
    // The app's desktop entry, the stack's folder, or the trash's identifier.
    std::string path;
    std::string name;
    bool running = false;
    bool launching = false;
    // The trash holds something.
    bool full = false;
    // What the app shows beside its icon.
    DockBadge badge;
    // A minimized window's own tile (its app's icon, its title): the window, else 0.
    uint32_t window = 0;
    // Room kept for a tile being dragged in: nothing is drawn there.
    bool placeholder = false;
    // A drop here would go to this tile.
    bool highlighted = false;
    // A stack shown as a pile: its newest items, newest first. Empty shows the folder.
    std::vector<std::string> fanned;
};

struct DockPaintContext {
    const DockRowMetrics* metrics = nullptr;
    double devicePixelRatio = 1;
    // The size of a tile at the peak of magnification: the one size app icons are drawn at.
    double largestTile = 0;
    bool showIndicators = true;
    // Row coordinates to the window's.
    std::function<QPointF(double axis, double depth)> toWindow;
    // The pixels behind the bar are the desktop's (a compositor blends them) or our own.
    bool translucent = true;
};

class DockSlotPainter {
public:
    virtual ~DockSlotPainter() = default;
    // `tile` is the slot's rectangle in window coordinates; `frame` its place in the row.
    virtual void paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
        const DockPaintContext& context) = 0;
};

// An application: its icon from the store's cache, and the running dot at the edge.
class AppTilePainter final : public DockSlotPainter {
public:
    explicit AppTilePainter(DockStore& store) : store_(store) {}
    void paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
        const DockPaintContext& context) override;

private:
    DockStore& store_;
    // Icons are drawn once at the magnified size; the resting size gets its own smooth copy, kept
    // here by path with the bitmap it came from.
    struct Resting {
        const void* source = nullptr;
        QImage image;
    };
    std::map<std::string, Resting> resting_;
};

// A tile's image at the largest size it is shown at and at its resting size, each drawn again
// only when its size or scale changes: a magnified tile changes size on every pointer move.
struct TwoSizes {
    QImage full;
    QImage resting;
    void clear() { full = resting = QImage(); }
    // `render` draws the image at a size in device pixels.
    [[nodiscard]] const QImage& pick(const DockSlotFrame& frame, const DockPaintContext& context,
        const std::function<QImage(int pixels)>& render);
};

// A theme icon by name, or a drawing of our own where the theme has none (a folder, the trash).
class SymbolTilePainter final : public DockSlotPainter {
public:
    enum class Symbol { folder, trash };
    explicit SymbolTilePainter(Symbol symbol) : symbol_(symbol) {}
    void paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
        const DockPaintContext& context) override;

private:
    [[nodiscard]] QImage render(int pixels, bool full) const;

    Symbol symbol_;
    bool full_drawn_ = false;
    TwoSizes images_;
};

// A stack: its folder, or, shown as a pile, its newest items fanned like papers, the newest on
// top (pictures as small prints of themselves, other files as their kind's icon).
class StackTilePainter final : public DockSlotPainter {
public:
    void paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
        const DockPaintContext& context) override;

private:
    [[nodiscard]] static QImage renderPile(const std::vector<std::string>& items, int pixels);

    SymbolTilePainter folder_ { SymbolTilePainter::Symbol::folder };
    struct Pile {
        std::vector<std::string> items;
        TwoSizes images;
    };
    std::map<std::string, Pile> piles_;
};

class DividerPainter final : public DockSlotPainter {
public:
    void paint(QPainter& painter, const DockRowItem& item, const DockSlotFrame& frame, const QRectF& tile,
        const DockPaintContext& context) override;
};

[[nodiscard]] std::unique_ptr<DockSlotPainter> makeSlotPainter(DockSlotKind kind, DockStore& store);

// An app's count and progress over its tile.
void paintBadge(QPainter& painter, const DockBadge& badge, const QRectF& tile);

// The running indicator's place and size, shared by every painter that shows one.
void paintIndicator(QPainter& painter, const DockSlotFrame& frame, const DockPaintContext& context);

} // namespace kestrune
