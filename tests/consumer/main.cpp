// A host built against the installed package. No engine lies beside it, so Initialize must
// refuse with -13 and leave the manager uninitialised.
#include <cstdio>

#include <orbperix/orbperix.h>

int main() {
    OrbPerix::PERIXProviderManager& manager = OrbPerix::PERIXProviderManager::GetInstance();
    const int result = manager.Initialize(nullptr, "consumer");
    std::printf("consumer: Initialize without an engine beside the executable -> %d\n", result);
    if (result != -13 || manager.IsManagerInitialized()) {
        return 1;
    }
    std::printf("consumer: ok\n");
    return 0;
}
