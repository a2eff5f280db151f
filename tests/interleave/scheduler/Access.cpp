// The functions that the compiler calls for each access to memory, by the thread sanitizer's
// instrumentation. This file itself is compiled without.

#include "scheduler/Access.h"

#include <dlfcn.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace {

using interleave::noteAccess;
using interleave::noteAtomic;

bool acquires(int order) {
    return order == __ATOMIC_ACQUIRE || order == __ATOMIC_CONSUME || order == __ATOMIC_ACQ_REL ||
           order == __ATOMIC_SEQ_CST;
}
bool releases(int order) {
    return order == __ATOMIC_RELEASE || order == __ATOMIC_ACQ_REL || order == __ATOMIC_SEQ_CST;
}

/// Says whether an access is one of those with which the standard library counts references. A
/// relaxed one may be another's, but to anything else than such accesses both are the same.
template <typename Number>
bool isReferences(Number const volatile* /*number*/, int order, int ofCount) {
    return std::is_same_v<Number, std::uint32_t> && order == ofCount;
}
void noteReferences(void const volatile* number, interleave::References const& references,
                    void const* code) {
    bool const isChange = references.change != 0;
    noteAtomic({const_cast<void const*>(number), 4, true, isChange, isChange, isChange, code,
                &references});
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the compiler's.
#define CODE __builtin_return_address(0)
#define PLAIN(size)                                                                       \
    void __tsan_read##size(void const* memory) { noteAccess(memory, size, false, CODE); } \
    void __tsan_write##size(void const* memory) { noteAccess(memory, size, true, CODE); }
#define NOTE(Type, isRead, isWrite)                                             \
    noteAtomic({const_cast<Type const*>(memory), sizeof(Type), isRead, isWrite, \
                isRead && acquires(order), isWrite && releases(order), CODE, nullptr})
// Of the standard library's loop that takes a reference, if there is one, the first round succeeds.
#define ATOMIC(bits, Type)                                                                   \
    Type __tsan_atomic##bits##_load(Type const volatile* memory, int order) {                \
        if (isReferences(memory, order, __ATOMIC_RELAXED)) {                                 \
            noteReferences(memory, {0, false}, CODE);                                        \
        } else {                                                                             \
            NOTE(Type, true, false);                                                         \
        }                                                                                    \
        return __atomic_load_n(memory, __ATOMIC_SEQ_CST);                                    \
    }                                                                                        \
    void __tsan_atomic##bits##_store(Type volatile* memory, Type value, int order) {         \
        NOTE(Type, false, true);                                                             \
        __atomic_store_n(memory, value, __ATOMIC_SEQ_CST);                                   \
    }                                                                                        \
    Type __tsan_atomic##bits##_fetch_add(Type volatile* memory, Type value, int order) {     \
        if (isReferences(memory, order, __ATOMIC_ACQ_REL)) {                                 \
            noteReferences(memory, {static_cast<int>(value), false}, CODE);                  \
        } else {                                                                             \
            NOTE(Type, true, true);                                                          \
        }                                                                                    \
        return __atomic_fetch_add(memory, value, __ATOMIC_SEQ_CST);                          \
    }                                                                                        \
    Type __tsan_atomic##bits##_fetch_sub(Type volatile* memory, Type value, int order) {     \
        NOTE(Type, true, true);                                                              \
        return __atomic_fetch_sub(memory, value, __ATOMIC_SEQ_CST);                          \
    }                                                                                        \
    Type __tsan_atomic##bits##_exchange(Type volatile* memory, Type value, int order) {      \
        NOTE(Type, true, true);                                                              \
        return __atomic_exchange_n(memory, value, __ATOMIC_SEQ_CST);                         \
    }                                                                                        \
    bool __tsan_atomic##bits##_compare_exchange_weak(Type volatile* memory, Type* expected,  \
                                                     Type value, int order, int) {           \
        if (isReferences(memory, order, __ATOMIC_ACQ_REL) && value == *expected + 1U) {      \
            noteReferences(memory, {1, true}, CODE);                                         \
            *expected = *memory;                                                             \
            return *memory != 0 && __atomic_fetch_add(memory, 1, __ATOMIC_SEQ_CST) != 0;     \
        }                                                                                    \
        NOTE(Type, true, true);                                                              \
        return __atomic_compare_exchange_n(memory, expected, value, false, __ATOMIC_SEQ_CST, \
                                           __ATOMIC_SEQ_CST);                                \
    }

extern "C" {

void __tsan_init() { interleave::noteInstrumented(CODE); }
void __tsan_func_entry(void*) {}
void __tsan_func_exit() {}
void __tsan_vptr_update(void const* memory, void const*) { noteAccess(memory, 8, true, CODE); }
void __tsan_read_range(void const* memory, std::size_t size) {
    noteAccess(memory, size, false, CODE);
}
void __tsan_write_range(void const* memory, std::size_t size) {
    noteAccess(memory, size, true, CODE);
}
PLAIN(1)
PLAIN(2)
PLAIN(4)
PLAIN(8)
PLAIN(16)
ATOMIC(8, std::uint8_t)
ATOMIC(32, std::uint32_t)
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

#undef PLAIN

// The standard library's own code, which links the nodes of a map, is not instrumented. Whoever
// follows such links has read the header.

#include <bits/stl_tree.h>

namespace {

template <typename Function>
Function* theirs(char const* name, Function* /*like*/) {
    void* const symbol = dlsym(RTLD_NEXT, name);
    Function* function = nullptr;
    std::memcpy(&function, &symbol, sizeof function);
    return function;
}

}  // namespace

namespace std {

void _Rb_tree_insert_and_rebalance(bool const left, _Rb_tree_node_base* node,
                                   _Rb_tree_node_base* parent, _Rb_tree_node_base& header) throw() {
    static auto* const insert =
        theirs("_ZSt29_Rb_tree_insert_and_rebalancebPSt18_Rb_tree_node_baseS0_RS_",
               &_Rb_tree_insert_and_rebalance);
    insert(left, node, parent, header);
    noteAccess(&header, sizeof header, true, CODE);
}

_Rb_tree_node_base* _Rb_tree_rebalance_for_erase(_Rb_tree_node_base* const node,
                                                 _Rb_tree_node_base& header) throw() {
    static auto* const erase =
        theirs("_ZSt28_Rb_tree_rebalance_for_erasePSt18_Rb_tree_node_baseRS_",
               &_Rb_tree_rebalance_for_erase);
    noteAccess(&header, sizeof header, true, CODE);
    return erase(node, header);
}

}  // namespace std
