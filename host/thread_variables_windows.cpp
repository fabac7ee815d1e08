// SPDX-License-Identifier: MIT
// Threads' own variables of the C++ library in this module, such as what is known of an exception under way, and their end.
//
// The compiler reaches each of them through __emutls_get_address. The compiler's own form of it never gives back its place among
// the threads' variables of the process, nor what stands there for threads that still run: fit for a program, but a module that
// a long-lived process loads and unloads again and again would use up all places. This form gives everything back when the
// module is unloaded; a thread that ends before gives back its own.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <windows.h>

namespace __gnu_cxx {
void __freeres(); // NOLINT(bugprone-reserved-identifier): the library's name. Frees what it keeps for exceptions without memory
} // namespace __gnu_cxx

namespace quorel {

namespace {

// A thread's variables are a chain; they are two or three in all.
struct alignas(64) Variable {
    Variable* next;
    const void* identity; // of the variable, the same in all threads
    // its value follows
};

void WINAPI freeVariables(void* first)
{
    for (auto* variable = static_cast<Variable*>(first); variable != nullptr;) {
        auto* const next = variable->next;
        _aligned_free(variable);
        variable = next;
    }
}

// Made before all other objects of the module and destroyed after them.
struct Place {
    Place() : index(FlsAlloc(freeVariables)) {}
    ~Place()
    {
        __gnu_cxx::__freeres();
        FlsFree(index); // frees the variables of every thread
    }

    DWORD index;
};
[[gnu::init_priority(101)]] Place place;

} // namespace

} // namespace quorel

// As the compiler describes a variable.
struct __emutls_object { // NOLINT(bugprone-reserved-identifier): the compiler's name
    std::size_t size;
    std::size_t alignment;
    void* unused;
    const void* initialValue; // zeros when null
};

extern "C" void* __emutls_get_address(__emutls_object* object); // NOLINT(bugprone-reserved-identifier): the compiler's name

void* __emutls_get_address(__emutls_object* object)
{
    using namespace quorel;
    auto* const first = static_cast<Variable*>(FlsGetValue(place.index));
    for (auto* variable = first; variable != nullptr; variable = variable->next)
        if (variable->identity == object)
            return variable + 1;

    auto* made = static_cast<Variable*>(_aligned_malloc(sizeof(Variable) + object->size, alignof(Variable)));
    if (made == nullptr || object->alignment > alignof(Variable))
        std::abort();
    *made = {first, object};
    if (object->initialValue != nullptr)
        std::memcpy(made + 1, object->initialValue, object->size);
    else
        std::memset(made + 1, 0, object->size);
    FlsSetValue(place.index, made);
    return made + 1;
}
