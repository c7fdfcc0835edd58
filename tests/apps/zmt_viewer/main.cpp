#include <QApplication>

#include <gtest/gtest.h>

#include "viewerprogram.h"

/// All tests share the application, as the parts of a program do.
int main(int argc, char ** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    prepareWindowSystem();
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
