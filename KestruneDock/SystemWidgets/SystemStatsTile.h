#pragma once
// OVERVIEW
// The base of the tiles fed by the statistics sampler (Activity, Network): shown, a tile holds a
// demand for its parts at its interval and redraws on each sample; hidden, it holds none, and
// with no demand left the sampler stops. Its card holds a demand of its own while open.
//
// Main thread only.

#include <QWidget>

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"
#include "KestruneKit/SystemStats/SystemStatsSampler.h"

namespace kestrune {

class SystemStatsTile : public WidgetTile {
public:
    static constexpr Seconds sampleInterval { 2 };

    SystemStatsTile(WidgetInstance instance, WidgetMonitors& monitors, SystemStatsParts parts);
    ~SystemStatsTile() override;

    [[nodiscard]] const SystemStatsReading& reading() const;
    [[nodiscard]] bool hasSample() const;

protected:
    void shownChanged() override;
    // What the face shows, to tell whether a sample changed it: a tile whose face would look the
    // same is not painted again.
    [[nodiscard]] virtual std::string faceKey() const { return accessibleText(); }

    WidgetMonitors& monitors_;

private:
    SystemStatsParts parts_;
    std::string shownKey_;
    SystemStatsDemandToken demand_;
    uint64_t watch_ = 0;
};

// A card that wants the sampler while it is open and shows each sample: `fill` is called now
// and on every sample.
class SamplerCard : public QWidget {
public:
    SamplerCard(WidgetMonitors& monitors, SystemStatsParts parts);
    ~SamplerCard() override;

protected:
    virtual void fill() = 0;
    // Call at the end of the subclass's constructor.
    void start() { fill(); }

    WidgetMonitors& monitors_;

private:
    SystemStatsDemandToken demand_;
    uint64_t watch_ = 0;
};

namespace systemface {
// A bar that fills upward in `colour` by `fraction` within `box`.
void paintBar(QPainter& painter, const QRectF& box, double fraction, const QColor& colour);
// A ring within `box` filled clockwise from the top by `fraction`.
void paintRing(QPainter& painter, const QRectF& box, double fraction, const QColor& colour, double stroke);
// A line graph of `values` (oldest first, 0 to `top`) across `box`, filled below.
void paintGraph(QPainter& painter, const QRectF& box, const std::vector<double>& values, double top, const QColor& colour);
[[nodiscard]] QColor processorColour();
[[nodiscard]] QColor memoryColour(SystemStatsPressure pressure);
[[nodiscard]] QColor graphicsColour();
[[nodiscard]] QColor downColour();
[[nodiscard]] QColor upColour();
} // namespace systemface

} // namespace kestrune
