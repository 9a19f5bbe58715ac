// ClampFixture.h: virtual time, recording sinks, and a manager whose flusher rests between tests.
#pragma once

#include "tests/support/RecordingSinks.h"
#include "tests/support/VirtualTime.h"

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/clamp/MsgClampInternal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

class ClampTest : public ::testing::Test {
protected:
    void SetUp() override {
        RecordingSinks::reset();
        VirtualTime::reset();
        msgClampDbg.setValue(0);
    }
    void TearDown() override { stopFlusher(); }

    // For the tests in which the flusher would only disturb.
    static void stopFlusher() { MsgClampInternal::getRef().stopThreadsCb(); }

    // Closes a fresh site and takes what it said.
    static void close(MsgClamp& site) {
        for (int i = 0; i < 16; ++i) {
            site.error("burst\n");
        }
        stopFlusher();
        RecordingSinks::take();
    }
};
