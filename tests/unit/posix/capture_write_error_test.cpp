// A capture whose file stops taking bytes mid-way (here: the process's file-size limit, as a
// full disk would): the capture ends with one line, the session goes on. POSIX only (the
// limit is how the failure is provoked; the library's handling is the same everywhere).
#include <signal.h>
#include <sys/resource.h>

#include <cstdio>
#include <string>

#include "capture/capture.h"
#include "../input_test_helpers.h"
#include "orbperix/orbperix_c.h"
#include "platform/platform.h"

namespace {

using namespace input_test;
using CaptureWriteError = InputTest;

TEST_F(CaptureWriteError, FileThatStopsTakingBytesEndsTheCaptureWithOneLine) {
    const std::string path =
        OrbPerix::platform::ExecutableDirectory() + "/capture_write_error.pcapng";
    rlimit saved{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &saved));
    signal(SIGXFSZ, SIG_IGN);
    rlimit small = saved;
    small.rlim_cur = 4096;
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
    ASSERT_EQ(0, orbperix_capture_start(path.c_str(), nullptr));
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent key = Event(1, 0);
    int posted = 0;
    while (OrbPerix::capture::On() && posted < 100000) {
        ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &key));
        ++posted;
    }
    EXPECT_TRUE(WaitFor([] { return !OrbPerix::capture::On(); }));
    // The session goes on, uncaptured.
    EXPECT_EQ(0, provider->PostRemoteCtrlEvent(&service, &key));
    EXPECT_EQ(-4, orbperix_capture_stop());
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(1, CountTraceLines("Capture stopped: write error on " + path +
                                 "(OrbPerix::Capture)"));
    EXPECT_EQ(1, CountTraceLines("Capture started: " + path + "(OrbPerix::Capture)"));
    EXPECT_EQ(posted + 1, perix_sim_peer_packet_count());
    std::remove(path.c_str());
}

}  // namespace
