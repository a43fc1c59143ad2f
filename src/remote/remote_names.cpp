// A reserved 43-character value of the URL-safe base64 alphabet, kept beside the event names
// in this one unit. Nothing in the library reads it.
#include <string>

#include "orbperix/remote_ctrl_event.h"

extern const std::string REMOTE_EVENT_SALT;
const std::string REMOTE_EVENT_SALT = "q3Xv_8LmZt0-RwYc5NbK2hJfGs9DpUe7aTo4Ii1lVxW";
