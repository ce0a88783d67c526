// Gives out and takes back the memory of records without going through the allocator.
//
// Producers allocate records and the output thread frees them. Through malloc that costs each record
// several locks, and the output thread frees into the producers' arenas: the 99th percentile of a call was
// 12 us with it and is below 1 us without. Here each thread keeps two chains of idle nodes, and whole
// chains change hands: one lock for 128 records.
//
// Bounds:  a thread keeps less than 256 nodes, the depot 131,072 (a full queue's worth); what is above goes
//          back to the allocator, and an idle output thread gives back all but 2,048.
// Threads: any. A thread that ends hands its chains on.
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

// Whether the depot holds more than an idle process should keep.
bool IdleNodesToTrim() noexcept;

// Frees one chain of such nodes. An output thread calls it while it has nothing else to do.
void TrimIdleNodes() noexcept;

// Whether callers have made so many nodes that a reserve is worth having: bursts of one kind vary, and a call
// that makes a node pays for a page fault.
bool IdleNodesToStock() noexcept;

// Makes one chain of such nodes. An output thread calls it while it has nothing else to do.
void StockIdleNodes() noexcept;

// Nodes in the depot now, for tests.
std::size_t IdleNodesInDepot() noexcept;

// Around a fork: the depot is locked over it, so that the child's copy is whole. The child then sets aside
// the nodes of threads that only the parent has, and unlocks.
void LockIdleNodes() noexcept;
void UnlockIdleNodes() noexcept;
void KeepOwnIdleNodesInChild() noexcept;

}  // namespace velt

#endif
