// Out-of-line special members of the exported interfaces, so that the library exports them
// (a host's derived class or copy links against these).
#include "orbperix/providers.h"

namespace OrbPerix {

IProvider::IProvider() = default;
IProvider::IProvider(const IProvider&) = default;
IProvider& IProvider::operator=(const IProvider&) = default;
IProvider::~IProvider() = default;

#define ORBPERIX_DEFINE_INTERFACE_MEMBERS(Interface)                                  \
    Interface::Interface() = default;                                                \
    Interface::Interface(const Interface& other) = default;                          \
    Interface::Interface(Interface&& other) = default;                      \
    Interface& Interface::operator=(const Interface& other) = default;               \
    Interface& Interface::operator=(Interface&& other) = default;           \
    Interface::~Interface() = default;

ORBPERIX_DEFINE_INTERFACE_MEMBERS(IInputProvider)
ORBPERIX_DEFINE_INTERFACE_MEMBERS(ISourceProvider)
ORBPERIX_DEFINE_INTERFACE_MEMBERS(ISinkProvider)

#undef ORBPERIX_DEFINE_INTERFACE_MEMBERS

}  // namespace OrbPerix
