// What a forked child has of its parent and must not touch.
#ifndef VELT_PLATFORM_INHERITED_H
#define VELT_PLATFORM_INHERITED_H

namespace velt {

// A member of an object that a forked child may have to give up. Its locks may be held by threads that only
// the parent has, so the child neither uses nor destroys it.
struct Inherited {
  void* object = nullptr;
  Inherited* next = nullptr;
};

// Keeps `object`, which contains `link`, reachable until the process ends, so that leak checkers do not
// report it. Once per object, from any thread of a forked child.
void KeepInherited(Inherited& link, void* object) noexcept;

}  // namespace velt

#endif
