// Out-of-line special members of the exported cast interfaces.
#include "orbperix/cast.h"

ICastSession::ICastSession() = default;
ICastSession::ICastSession(const ICastSession&) = default;
ICastSession& ICastSession::operator=(const ICastSession&) = default;
ICastSession::~ICastSession() = default;

ICastServiceListener::ICastServiceListener() = default;
ICastServiceListener::ICastServiceListener(const ICastServiceListener&) = default;
ICastServiceListener& ICastServiceListener::operator=(const ICastServiceListener&) = default;
ICastServiceListener::~ICastServiceListener() = default;

ICastSessionListener::ICastSessionListener() = default;
ICastSessionListener::ICastSessionListener(const ICastSessionListener&) = default;
ICastSessionListener& ICastSessionListener::operator=(const ICastSessionListener&) = default;
ICastSessionListener::~ICastSessionListener() = default;
