#include "import/mime_type_helper.h"
#include "platform/temporary_items.h"

namespace ulvek {

Status MIMETypeHelper::prepareTemporaryItems() { return temporaryItemsFolder().status(); }

void MIMETypeHelper::removeTemporaryItems() { removeProcessTemporaryItems(); }

}  // namespace ulvek
