#include "support/Isolation.h"
#include "support/TestApplication.h"

#include <gmock/gmock.h>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <iostream>

/// main() of tests that need an event loop: a Qt application, and logging to standard error.
int main(int argc, char** argv) {
    if (!isolateFromMachine())
        std::cerr
            << "No namespaces of our own: System V key 1234 and port 5002 are the machine's\n";
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);
    const TestApplication application(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
