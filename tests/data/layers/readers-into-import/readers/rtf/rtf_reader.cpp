// A reader may not include the dispatcher above it.
#include "import/route_table.h"
