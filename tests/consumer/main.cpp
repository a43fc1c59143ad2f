// A host built against the installed package. No engine lies beside it, so Initialize must
// refuse with -13 and leave the manager uninitialised: through the C++ interface and through
// the header-only C++ layer (installed with the other headers).
#include <cstdio>

#include <orbperix/orbperix.h>
#include <orbperix/orbperix.hpp>

int main() {
    OrbPerix::PERIXProviderManager& manager = OrbPerix::PERIXProviderManager::GetInstance();
    const int result = manager.Initialize(nullptr, "consumer");
    std::printf("consumer: Initialize without an engine beside the executable -> %d\n", result);
    if (result != -13 || manager.IsManagerInitialized()) {
        return 1;
    }
    orbperix::Manager layer;
    const orbperix::Code code = layer.Initialize("consumer-layer");
    std::printf("consumer: the C++ layer's Initialize -> %d\n", code.value());
    if (code != orbperix::kNotAvailable || layer || orbperix::Manager::IsInitialized()) {
        return 1;
    }
    std::printf("consumer: ok\n");
    return 0;
}
