// SPDX-License-Identifier: MIT
// One list shape for every list of the tool: a head record with count, first
// and last over nodes that carry their own links. Nodes with a `prev` member
// are linked both ways; nodes with only `next` are linked forward.
#pragma once

#include <cstdint>
#include <cstdlib>

template <typename Node>
struct FwList {
    uint32_t count = 0;
    Node *first = nullptr;
    Node *last = nullptr;

    static constexpr bool kDoubly = requires(Node n) { n.prev; };

    bool empty() const { return first == nullptr; }

    // Appends at the tail; the node must not be in any list.
    void append(Node *node) {
        node->next = nullptr;
        if constexpr (kDoubly) node->prev = last;
        if (last != nullptr)
            last->next = node;
        else
            first = node;
        last = node;
        ++count;
    }

    // Inserts in front of `before` (nullptr appends).
    void insert_before(Node *before, Node *node) {
        if (before == nullptr) {
            append(node);
            return;
        }
        static_assert(kDoubly, "insertion in front of a node needs back links");
        node->next = before;
        node->prev = before->prev;
        if (before->prev != nullptr)
            before->prev->next = node;
        else
            first = node;
        before->prev = node;
        ++count;
    }

    // Forgets the nodes without freeing them.
    void reset() {
        count = 0;
        first = nullptr;
        last = nullptr;
    }

    // Frees every node with `release` (free() by default). Each node is
    // unlinked before it is released, so an interrupted removal leaves a
    // consistent list behind.
    template <typename Release>
    void remove_all(Release release) {
        while (first != nullptr) {
            Node *node = first;
            first = node->next;
            if (first == nullptr) last = nullptr;
            if constexpr (kDoubly) {
                if (first != nullptr) first->prev = nullptr;
            }
            if (count > 0) --count;
            release(node);
        }
        count = 0;
    }
    void remove_all() {
        remove_all([](Node *n) { std::free(n); });
    }
};
