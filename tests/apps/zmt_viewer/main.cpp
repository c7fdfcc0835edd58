#include <cstdlib>

#include <QApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "viewerprogram.h"

/// All tests share the application, as the parts of a program do.
int main(int argc, char ** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // Windows of tests keep nothing in the folder of whoever runs them.
    const QTemporaryDir settings;
    ::setenv("XDG_CONFIG_HOME", settings.path().toUtf8().constData(), 1);
    prepareWindowSystem();
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
