// Built with the optimiser at its strongest: is a destroyed hook's stamp really 0 in memory, and its call
// refused? Prints what is wrong and ends with 1.

#include "vorlan/foundation/MessageServices.h"
#include "vorlan/lifecycle/Bridge.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

namespace {

int reports = 0;
int calls = 0;
int faults = 0;

void check(bool ok, char const* what) {
    if (!ok) {
        std::printf("%s\n", what);
        ++faults;
    }
}

struct Owner {
    bool get() { return ++calls > 0; }
    bool set(int) { return ++calls > 0; }
};

Owner s_owner;

using Get = BridgeAnchorVoid<Owner, bool>;
using Set = BridgeAnchor<Owner, int, bool>;

// The bytes leave through a file, so that the optimiser must keep them as they are.
unsigned int wordInMemory(BridgeBase const* base) {
    unsigned int word = 1;
    std::FILE* const file = std::tmpfile();
    if (file != nullptr && std::fwrite(base, sizeof word, 1, file) == 1) {
        std::rewind(file);
        if (std::fread(&word, sizeof word, 1, file) != 1) {
            word = 1;
        }
    }
    if (file != nullptr) {
        std::fclose(file);
    }
    return word;
}

template <class Anchor, class Call>
void destroyAndCall(Anchor* anchor, Call call) {
    BridgeBase const* const base = anchor;
    int const callsBefore = calls;
    int const reportsBefore = reports;
    check(call(anchor) && calls == callsBefore + 1, "a living hook does not call");
    std::destroy_at(anchor);
    check(wordInMemory(base) == 0, "the stamp of a dead hook is not 0 in memory");
    for (int i = 0; i < 2; ++i) {
        check(!call(anchor), "a dead hook gives a result");
    }
    check(calls == callsBefore + 1, "a dead hook reaches the object");
    check(reports == reportsBefore + 2, "a dead hook is not reported");
}

bool callGet(BridgeHookVoid<bool> const* hook) {
    return hook->callCb();
}

bool callSet(BridgeHook<int, bool> const* hook) {
    return hook->callCb(1);
}

// At file scope, in the order of an exit: the watcher was built first and calls once the holder is gone.
BridgeHookVoid<bool> const* s_watched = nullptr;

struct Watcher {
    ~Watcher() {
        int const before = calls;
        if (s_watched->callCb() || calls != before) {
            std::printf("a dead hook at file scope reaches the object\n");
            std::fflush(stdout);
            std::_Exit(1);
        }
    }
} s_watcher;

struct Holder {
    Holder() { s_watched = &anchor; }
    Get anchor{s_owner, &Owner::get};
} s_holder;

alignas(Get) unsigned char s_static[sizeof(Get)];

} // namespace

extern "C" bool errorMsg(char const*, ...) {
    ++reports;
    return true;
}

int main() {
    check(s_watched->callCb(), "a hook at file scope does not call");
    destroyAndCall(new (s_static) Get(s_owner, &Owner::get), callGet);
    alignas(Set) unsigned char local[sizeof(Set)];
    destroyAndCall(new (local) Set(s_owner, &Owner::set), callSet);
    std::unique_ptr<unsigned char[]> const heap(new unsigned char[sizeof(Set)]);
    destroyAndCall(new (heap.get()) Set(s_owner, &Owner::set), callSet);
    return faults == 0 ? 0 : 1;
}
