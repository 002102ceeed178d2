// SPDX-License-Identifier: MIT
#include <new>

#include "messages.h"

int flashwright_main(int argc, char **argv);

int main(int argc, char **argv) {
    // The front end reports failures as statuses; the only exception that can
    // reach here is an allocation failure in a text helper, reported like the
    // front end's own allocation failures.
    try {
        return flashwright_main(argc, argv);
    } catch (const std::bad_alloc &) {
        PrintLogMessage(kMsgError, "%s\n", "Memory allocation error !");
        return 10;
    }
}
