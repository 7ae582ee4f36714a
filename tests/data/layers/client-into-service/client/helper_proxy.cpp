// The client library may not include the service.
#include "service/dbus_service.h"
