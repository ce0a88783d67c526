// Gives out and takes back the memory of records without going through the allocator.
//
// Producers allocate records and the output thread frees them. With malloc that costs several locks for each
// record, since the output thread frees into the producers' arenas: the 99th percentile of a call was 12 us
// with malloc and is below 1 us without. Here each thread keeps idle nodes in bunches of 8. A chain of 16
// bunches moves from a thread to the depot, and from there to the next thread: one lock for 128 records.
//
// Bounds:
// - A thread keeps at most 16 nodes for itself and one chain of fewer than 128 others.
// - The depot keeps at most 131,072 nodes, as many as a full queue holds; more are freed.
// - Every 5 seconds the chains of all threads go to the depot, so an idle thread keeps at most 16 nodes.
// - After 5 seconds with nothing to do an output thread frees all but 2,048 nodes of the depot.
//
// Threads: any. When a thread ends, its full bunches go to the depot.
//
// Fork: a child has the depot's nodes; those of other threads stay allocated and reachable, unused.
#ifndef VELT_DEBUG_CHANNEL_RECORD_RECYCLER_H
#define VELT_DEBUG_CHANNEL_RECORD_RECYCLER_H

#include <cstddef>

namespace velt {

struct RecordNode;

// Returns a node whose record is not constructed. Throws std::bad_alloc.
RecordNode* TakeNode();

// Takes back a node whose record has been destroyed.
void GiveNode(RecordNode* node) noexcept;

// Whether the depot, or a thread, holds more than an idle process should keep.
bool IdleNodesToTrim() noexcept;

// One step of freeing them: moves the chains of all threads to the depot, and frees one chain if the depot
// has too many nodes. An output thread calls it while it has nothing else to do.
void TrimIdleNodes() noexcept;

// Whether callers have allocated so many nodes that a reserve should be made: the next burst may be larger,
// and a call that allocates a node pays for a page fault. The reserve takes a quarter off the 99.9th
// percentile.
bool IdleNodesToStock() noexcept;

// Makes one chain of such nodes. An output thread calls it while it has nothing else to do.
void StockIdleNodes() noexcept;

// Nodes in the depot now, for tests.
std::size_t IdleNodesInDepot() noexcept;

// Around a fork: the depot is locked, so that the child gets a consistent copy, and unlocked in both
// processes. Its lock is taken after the lock of thread objects.
void LockIdleNodes() noexcept;
void UnlockIdleNodes() noexcept;

}  // namespace velt

#endif
