#!/usr/bin/env bash
# Checks the exported symbols of the built library: the host interface is there, no internal
# helper (platform layer, logging, encoder internals, providers' private code) is.
#   scripts/check-exports.sh linux|windows BUILD_DIR
set -euo pipefail
platform=$1 dir=$2
if [ "$platform" = linux ]; then
  symbols=$(nm -D --defined-only "$dir/bin/libOrbPerixProvider.so" | c++filt)
else
  symbols=$(x86_64-w64-mingw32-objdump -p "$dir/bin/OrbPerixProvider.dll" |
            sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | c++filt)
fi
status=0
require() {
  if ! grep -qF -- "$1" <<<"$symbols"; then echo "missing export: $1"; status=1; fi
}
forbid() {
  if grep -qE -- "$1" <<<"$symbols"; then
    echo "internal symbol exported ($1):"; grep -E -- "$1" <<<"$symbols" | head -n 5; status=1
  fi
}
for s in "OrbPerix::PERIXProviderManager::GetInstance()" \
         "OrbPerix::PERIXProviderManager::Initialize(" \
         "OrbPerix::PERIXProviderManager::IsManagerInitialized()" \
         "OrbPerix::PERIXProviderManager::Finalize()" \
         "OrbPerix::PERIXProviderManager::InitCastEngine(" \
         "OrbPerix::PERIXProviderManager::SetCastEngineLocalDevice(" \
         "OrbPerix::PERIXProviderManager::CreateCastSession(" \
         "OrbPerix::PERIXProviderManager::DestroyCastSession(" \
         "OrbPerix::PERIXProviderManager::PERIXProviderManager(OrbPerix::PERIXProviderManager const&)" \
         "OrbPerix::PERIXProviderManager::operator=(OrbPerix::PERIXProviderManager const&)" \
         "OrbPerix::IProvider::IProvider()" \
         "ICastSession::ICastSession()" "ICastServiceListener::ICastServiceListener()" \
         "ICastSessionListener::ICastSessionListener(ICastSessionListener const&)"; do
  require "$s"
done
if grep -q "RemoteEvent" <<<"$symbols" || [ -f src/remote/remote_event.cpp ]; then
  require "RemoteUtil::RemoteEvent::GetInstance()"
  require "RemoteUtil::RemoteEvent::SendRemoteCtrlEvent("
fi
if [ -f src/manager/registry.cpp ]; then
  for s in CreateInputProvider CreateSourceProvider CreateSinkProvider DestoryInputProvider \
           DestorySourceProvider DestorySinkProvider; do
    require "OrbPerix::PERIXProviderManager::$s("
  done
  for s in IInputProvider ISourceProvider ISinkProvider; do require "OrbPerix::$s::$s("; done
fi
forbid 'OrbPerix::platform::'
forbid 'OrbPerix::log::'
forbid 'RemoteUtil::RemoteController::'
forbid 'RemoteUtil::(AddTimeStamp|DoPaddingOperation)'
forbid 'OrbPerix::(coding|ElapsedMilliseconds)'
forbid 'OrbPerix::(Input|Source|Sink|Base)Provider::'
forbid 'OrbPerix::Session(Provider|Ops|Store)'
forbid 'hostlibs::'
forbid 'OrbPerix::capture::'
count=$(grep -cE '(OrbPerix|RemoteUtil|ICast)' <<<"$symbols" || true)
echo "check-exports: $platform: $count interface symbols exported; $([ $status -eq 0 ] && echo ok || echo FAILED)"
exit $status
