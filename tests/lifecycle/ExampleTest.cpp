// The lifecycle example, in virtual time: what a reader sees of it with VRSSRLOG set, whole.

#include "tests/lifecycle/RegistryOutput.h"
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

namespace {

// clang-format off
constexpr char kStory[] = R"(Registering subsystem: BufferPool(@){releaseMem=@,p=10}
Registering subsystem: Journal(@){signalShutdown=@,p=50}{checkFinished=@,p=50}{stopThreads=@,p=50}
Registering subsystem: Listener(@){signalShutdown=@,p=90}
main: work is done, shutting down
Subsystem::Registry::shutdownSubsystems() started
|-- Subsystem::Registry::shutdownSubsystems() signalling shutdown
|       signal shutdown -> Listener(@)
Listener: closed, no new requests
|       signal shutdown -> Journal(@)
Journal: writing the records in hand
|       signal shutdown -> BufferPool(@)
|-- Subsystem::Registry::shutdownSubsystems() letting subsystems settle
|       checking settled status -> Listener(@)
|       checking settled status -> Journal(@)
Journal: still writing
|       checking settled status -> Listener(@)
|       checking settled status -> Journal(@)
Journal: still writing
|       checking settled status -> Listener(@)
|       checking settled status -> Journal(@)
Journal: still writing
|       checking settled status -> Listener(@)
|       checking settled status -> Journal(@)
Journal: all written
|       checking settled status -> BufferPool(@)
|       checking settled status -> Listener(@)
|       checking settled status -> Journal(@)
Journal: all written
|       checking settled status -> BufferPool(@)
|       checking settled status -> Listener(@)
|       checking settled status -> Journal(@)
Journal: all written
|       checking settled status -> BufferPool(@)
|-- Subsystem::Registry::shutdownSubsystems() stopping threads
|       stop threads -> Listener(@)
|       stop threads -> Journal(@)
Journal: writer stopped
|       stop threads -> BufferPool(@)
|-- Subsystem::Registry::shutdownSubsystems() releasing memory
|       release memory -> Listener(@)
|       release memory -> Journal(@)
|       release memory -> BufferPool(@)
BufferPool: buffers freed
`-- Subsystem::Registry::shutdownSubsystems() finished
main: all is down
Unregistering subsystem: Listener(@){signalShutdown=@,p=90}
Unregistering subsystem: Journal(@){signalShutdown=@,p=50}{checkFinished=@,p=50}{stopThreads=@,p=50}
Unregistering subsystem: BufferPool(@){releaseMem=@,p=10}
Subsystem::Registry::shutdownSubsystems() started
|-- Subsystems not initialized
`-- Subsystem::Registry::shutdownSubsystems() finished
)";
// clang-format on

} // namespace

TEST(LifecycleExample, TellsTheWholeStory) {
    ChildInput input;
    input.environment["VRSSRLOG"] = "1";
    ChildResult const result = runChild({"sh", "-c", EXAMPLE " 2>&1"}, input);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(normalized(result.out), kStory);
}
