#include "support/Isolation.h"

#include <gmock/gmock.h>

#include <iostream>

int main(int argc, char** argv) {
    if (!isolateFromMachine())
        std::cerr
            << "No namespaces of our own: System V key 1234 and port 5002 are the machine's\n";
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
