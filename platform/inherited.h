// Objects that a forked child inherits from its parent and must not touch.
#ifndef VELT_PLATFORM_INHERITED_H
#define VELT_PLATFORM_INHERITED_H

namespace velt {

// The list link of one such object, a member of it. The object's locks may be held by threads that only the
// parent has, so the child neither uses nor destroys the object.
struct Inherited {
  void* object = nullptr;
  Inherited* next = nullptr;
};

// Keeps `object`, which contains `link`, reachable until the process ends, so that leak checkers do not
// report it. Called once per object, from any thread of a forked child.
void KeepInherited(Inherited& link, void* object) noexcept;

}  // namespace velt

#endif
