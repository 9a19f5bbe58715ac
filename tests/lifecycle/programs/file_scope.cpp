// Registers from constructors at file scope: one owner that goes before the registry does, one that stays.

#include "tests/lifecycle/programs/Engine.h"

namespace {

struct Registered : Engine {
    explicit Registered(char const* name) : Engine(name) { enter(); }
};

Registered s_first("First");
Registered& s_second = *new Registered("Second");

} // namespace

int main() {
    return s_second.refusals;
}
