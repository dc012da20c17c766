#include "host/loader/services.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    velto::host::Services(); // binds the host's own tables
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
