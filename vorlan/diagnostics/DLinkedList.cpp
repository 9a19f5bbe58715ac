#include "vorlan/diagnostics/DLinkedList.h"

#include "vorlan/foundation/MessageServices.h"

void DLinkedListBase::listError(DLinkNodeBase& node, Error error) {
    errorMsg("dll: err=%d, node=%p\n", static_cast<int>(error), static_cast<void*>(&node));
}

void DLinkedListBase::trace(Action /*action*/, DLinkNodeBase& /*node*/) {}
