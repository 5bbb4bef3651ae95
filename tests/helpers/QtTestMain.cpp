// The main of the application's tests: a QApplication for views painted offscreen (unless a
// test's environment names another platform), then GoogleTest.

#include <cstdlib>

#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    // The app's own resources (its icon), as its main loads them.
    Q_INIT_RESOURCE(app);
    return RUN_ALL_TESTS();
}
