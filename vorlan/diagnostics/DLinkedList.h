// DLinkedList.h: the error report and the trace point of an intrusive doubly linked list.
#pragma once

#include "vorlan/foundation/Compiler.h"

/// A node of the list; the list's user derives from it.
class VORLAN_API DLinkNodeBase {};

/// The part of the list that reports. It reads neither the list nor the node.
class VORLAN_API DLinkedListBase {
public:
    /// What is wrong with a node, by the list's own numbers.
    enum Error : int {};

    /// What the list is about to do, by its own numbers.
    enum Action : int {};

    /// Sends one error message with the number and the address of the node; the list stays as it is.
    void listError(DLinkNodeBase& node, Error error);

    /// A place for a breakpoint; it does nothing.
    void trace(Action action, DLinkNodeBase& node);
};
