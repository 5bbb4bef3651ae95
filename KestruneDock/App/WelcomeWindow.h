#pragma once
// The first-run welcome: a short window that says what the dock does, with the dock held out of
// sight behind it. "Get Started" (or closing the window) finishes it, once.
//
// Main thread only.

#include <functional>

#include <QWidget>

namespace kestrune {

class WelcomeWindow final : public QWidget {
public:
    explicit WelcomeWindow(std::function<void()> started);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void finish();

    std::function<void()> started_;
};

} // namespace kestrune
