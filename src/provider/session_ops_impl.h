// Member definitions of SessionOps<Kind>; included by session_ops.h only.
#ifndef ORBPERIX_SRC_PROVIDER_SESSION_OPS_IMPL_H_
#define ORBPERIX_SRC_PROVIDER_SESSION_OPS_IMPL_H_
#endif  // ORBPERIX_SRC_PROVIDER_SESSION_OPS_IMPL_H_
