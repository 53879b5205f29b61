/**
 * The C++ interface of qkmem: handles that delete themselves, objects that are registered when they
 * are created, and standard containers whose memory is on a handle. C++17 and later. It consists of
 * the files below, is all inline, and calls qkmem.h, which explains handles, options and the log.
 *
 *   qk::Handle pool("MULTITHREADED", "PA");
 *   auto* map = qk::make<Map>(pool, 640, 480);                         // new and registration
 *   qk::unique<Tile[]> tiles = qk::make_unique<Tile[]>(pool, 12);      // the same for a scope
 *   std::vector<int, qk::allocator<int>> heights(pool);                // a standard container
 *   qk::memory_resource resource(pool);
 *   std::pmr::map<std::pmr::string, int> names(&resource);             // and a pmr one
 *   qk::destroy(pool, map);                                            // deregistration, delete
 *   Tile* row = nullptr;                                               // a growable array
 *   qk_mem_marralloc(pool.number(), &row, sizeof *row, 16);
 *
 * Conventions. They hold for everything below unless its comment says otherwise. The conventions of
 * qkmem.h hold too.
 *
 * (1) Location. Records and log lines show the caller's source location. A default argument takes
 *     it, so don't pass `where`. What happens at the end of a scope shows the location where the
 *     object of that scope was created.
 *
 * (2) Handles. Functions take a handle as a qk::On, to which a qk::Handle and the number of a
 *     handle convert. The number is an int: other types don't convert. qk::make() and
 *     qk::make_unique() refuse a literal, or another int without a name, that the constructor could
 *     take as well, since the handle may have been forgotten: write qk::On(number). A temporary
 *     qk::Handle, which ends with the expression, is refused where the result needs it longer.
 *
 * (3) Errors. If there is no memory, std::bad_alloc is thrown, as by `new`. An exception of a
 *     constructor is passed on, and nothing is left behind. Nothing else throws. If the handle
 *     can't record an object, or doesn't exist, the object is created and destroyed all the same.
 *     The handle's deletion then doesn't destroy it.
 *
 * (4) Lifetime. What is on a handle ends before the handle. Deletion and clear of a handle destroy
 *     the objects that are registered on it and free its memory, in the order of its records, and
 *     log nothing unless DEBUG is on. An object that is left to that can own memory, containers and
 *     objects on the same handle: what it owns is released once, whatever comes first. Its
 *     destructor must not use an object that it owns, other than by destroying it, since that
 *     can be gone. Nor may it read memory of qk_mem_malloc() and its like while the trace file or
 *     HEAPSIZE is on, unless containers use the handle too.
 *     What was made from a qk::Handle and is used after its deletion is refused, even if a new
 *     handle has the number by then: nothing is freed, destroyed or allocated, an error is logged,
 *     and qk_mem_error() is 5566. What was made from a number isn't recognized. An object that the
 *     program destroys after that, or after a clear, is destroyed twice.
 *
 * (5) Threads. As in qkmem.h. One thread at a time uses an object of these classes.
 *
 * (6) Flags of the compiler. With -fno-exceptions, std::abort() is called instead of a throw. With
 *     -fno-rtti, objects and arrays can't be on handles (make(), make_array(), destroy(), unique),
 *     and a qk::memory_resource is equal only to itself. All files of a program use the same flags.
 */
#ifndef QKMEM_QKMEM_HPP_
#define QKMEM_QKMEM_HPP_

#include "qkmem/arrays.hpp"
#include "qkmem/containers.hpp"
#include "qkmem/handle.hpp"
#include "qkmem/objects.hpp"

#endif  // QKMEM_QKMEM_HPP_
