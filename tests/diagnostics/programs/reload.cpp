// Loads the shared library, uses it so that the flusher runs, and closes it, ten times over.
// Prints whether the library stays loaded and how many threads are left.

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <thread>

namespace {

// NOLINTBEGIN(concurrency-mt-unsafe): only the main thread comes here

int threads() {
    int count = 0;
    DIR* const tasks = opendir("/proc/self/task");
    while (dirent const* const entry = readdir(tasks)) {
        count += entry->d_name[0] != '.' ? 1 : 0;
    }
    closedir(tasks);
    return count;
}

template <class F>
F* symbol(void* library, char const* name) {
    void* const found = dlsym(library, name);
    if (found == nullptr) {
        std::printf("no %s: %s\n", name, dlerror());
        std::exit(1);
    }
    return reinterpret_cast<F*>(found);
}

void useOnce() {
    char const* const path = VORLAN_SHARED_LIBRARY;
    int const before = threads();
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::printf("%s\n", dlerror());
        std::exit(1);
    }
    auto* const clampedMsg = symbol<bool(void**)>(library, "clampedMsg");
    auto* const droppedMsg = symbol<char const*(void**)>(library, "droppedMsg");
    static void* site = nullptr;
    site = nullptr; // the library that made the last one is gone
    int passed = 0;
    for (int i = 0; i < 20; ++i) {
        if (!clampedMsg(&site)) {
            ++passed;
            droppedMsg(&site);
        }
    }
    std::printf("passed %d, threads +%d", passed, threads() - before);
    dlclose(library);
    void* const still = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    std::printf(", then +%d, %s\n", threads() - before, still != nullptr ? "still loaded" : "unloaded");
    if (still != nullptr) {
        dlclose(still);
    }
}

// NOLINTEND(concurrency-mt-unsafe)

} // namespace

int main() {
    std::thread([] {}).join(); // brings up what a sanitizer adds with the first thread
    for (int i = 0; i < 10; ++i) {
        useOnce();
    }
    return 0;
}
