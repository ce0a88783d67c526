// Gives out and takes back the memory of records without going through the allocator.
//
// Producers allocate records and the output thread frees them. Through malloc that costs each record
// several locks, and the output thread frees into the producers' arenas: the 99th percentile of a call was
// 12 us with it and is below 1 us without. Here each thread keeps idle nodes in bunches of 8. A chain of 16
// bunches goes from a thread to the depot, and from there to the next thread: one lock for 128 records.
//
// Bounds:  a thread keeps at most 16 nodes at hand and one chain of fewer than 128 others, and the depot
// 131,072
//          (a full queue's worth); what is above goes back to the allocator. Every 5 seconds the chains of
//          all threads go to the depot. After 5 seconds with nothing to do an output thread frees all but
//          2,048 nodes of the depot. So an idle thread keeps at most 16.
// Threads: any. A thread that ends hands its bunches on.
// Fork:    a child has the depot as it was; what other threads held stays allocated and reachable.
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

// One step of giving such nodes back: empties the chains of all threads into the depot, and frees one chain
// of what the depot has too many. An output thread calls it while it has nothing else to do.
void TrimIdleNodes() noexcept;

// Whether callers have made so many nodes that a reserve is worth having: bursts of one kind vary, and a call
// that makes a node pays for a page fault. The reserve takes a quarter off the 99.9th percentile.
bool IdleNodesToStock() noexcept;

// Makes one chain of such nodes. An output thread calls it while it has nothing else to do.
void StockIdleNodes() noexcept;

// Nodes in the depot now, for tests.
std::size_t IdleNodesInDepot() noexcept;

// Around a fork: the depot is locked over it, so that the child's copy is whole. Unlocked on both sides.
// Taken after the lock of thread objects.
void LockIdleNodes() noexcept;
void UnlockIdleNodes() noexcept;

}  // namespace velt

#endif
