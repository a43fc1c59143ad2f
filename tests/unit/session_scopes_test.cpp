// The shared session code logs under the scope of the provider kind that runs it: every
// operation's refusal carries "OrbPerix::SourceProvider::<operation>". The scope texts are data
// of each kind, so a wrong or swapped text shows here; the input tests compare whole lines.
#include <functional>
#include <string>
#include <vector>

#include "input_test_helpers.h"
#include "source_test_helpers.h"

namespace {

struct Operation {
    const char* name;
    std::function<void()> refuse;  // a call that the operation refuses with a line
};

// The operations of `p`, each called so that it logs (no session exists for "nobody").
// Leaves the provider initialised.
template <typename Provider>
std::vector<Operation> RefusedOperations(Provider& p, ProviderListener& listener) {
    static const std::string nobody = "nobody";
    static PERIXInfo unknownPeer = input_test::MakeInfo("nobody");
    static BinaryData empty{0, 0, nullptr, 0};
    static ServiceInfo unknownService{"nobody", "svc", 6};
    return {
        {"ConnectDevice", [&p] { p.ConnectDevice(nullptr); }},
        {"DisconnectDevice", [&p] { p.DisconnectDevice(nullptr); }},
        {"RegisterPERIXListener", [&p] { p.RegisterPERIXListener(&unknownPeer, nullptr); }},
        {"CreateServiceHandler",
         [&p, &listener] {
             p.Init();  // past the initialised check
             p.RegisterPERIXListener(nullptr, &listener);
         }},
        {"UnRegisterListener", [&p] { p.UnRegisterListener(nullptr); }},
        {"RegisterDataListener", [&p] { p.RegisterDataListener(nullptr, 1, nullptr); }},
        {"UnRegisterDataListener", [&p] { p.UnRegisterDataListener(nullptr, 1); }},
        {"SendBinaryData", [&p] { p.SendBinaryData(&nobody, &empty); }},
        {"StartDeviceService", [&p] { p.StartDeviceService(nullptr, nullptr); }},
        {"StopDeviceService", [&p] { p.StopDeviceService(&unknownService); }},
        {"RegisterEventCallback", [&p] { p.RegisterEventCallback(nobody, 1, nullptr); }},
    };
}

void ExpectEachLogsUnder(const std::vector<Operation>& operations, const std::string& prefix) {
    for (const Operation& op : operations) {
        ClearLogs();
        op.refuse();
        const std::string suffix = "(" + prefix + op.name + ")";
        bool found = false;
        for (const std::string& text : TraceTexts()) {
            found = found || (text.size() > suffix.size() &&
                              text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0);
        }
        EXPECT_TRUE(found) << op.name << " logged no line under " << suffix;
    }
}

using SourceScopes = source_test::SourceTest;

TEST_F(SourceScopes, EverySharedOperationLogsUnderTheSourceProvider) {
    ProviderListener host{};
    ExpectEachLogsUnder(RefusedOperations(*source, host), "OrbPerix::SourceProvider::");
}

}  // namespace
