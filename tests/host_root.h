// What every test of the stand-in for the platform needs: the text category that the daemon owns otherwise,
// and a root prefix that is gone when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "wire/framing.h"

thread_local uint32_t gPortIsolateTextCategory = 0;

struct HostRoot : testing::Environment {
    std::string path;
    void SetUp() override {
        char name[] = "/tmp/hostXXXXXX";
        path = mkdtemp(name);
        std::filesystem::create_directories(path + "/tmp");
        std::filesystem::create_directories(path + RUN_FOLDER);
        setenv(ROOT_VARIABLE, path.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(path); }
};
inline HostRoot& gRoot = *static_cast<HostRoot*>(testing::AddGlobalTestEnvironment(new HostRoot));
