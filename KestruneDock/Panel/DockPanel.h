#pragma once
// The dock's window: a borderless top-level widget that paints the row its controller laid out
// and passes the pointer on to it. It holds no rule of its own.
//
// Main thread only.

#include <QImage>
#include <QWidget>

namespace kestrune {

class DockPanelController;

class DockPanel final : public QWidget {
public:
    explicit DockPanel(DockPanelController& controller);

    [[nodiscard]] DockPanelController& controller() const { return controller_; }
    // The row as painted now, at the window's size and pixel ratio (for tests and the shape).
    [[nodiscard]] QImage render() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    [[nodiscard]] QPointF dragPosition() const;

    DockPanelController& controller_;
    // The window's picture, painted in bands and copied out: see paintEvent.
    QImage frame_;
};

} // namespace kestrune
