// Circular doubly-linked lists whose links are fields of the members. The ring's owner keeps the
// pointer to its head.
#ifndef KIV_MEMHEAP_RING_H
#define KIV_MEMHEAP_RING_H

namespace kiv {

template <typename T, T* T::*Next, T* T::*Prev>
struct Ring {
  static void MakeAlone(T* member) {
    member->*Next = member;
    member->*Prev = member;
  }

  static bool IsAlone(const T* member) { return member->*Next == member; }

  // Inserting before the head adds a tail.
  static void InsertBefore(T* position, T* member) {
    T* previous = position->*Prev;
    member->*Next = position;
    member->*Prev = previous;
    previous->*Next = member;
    position->*Prev = member;
  }

  static void Remove(T* member) {
    (member->*Prev)->*Next = member->*Next;
    (member->*Next)->*Prev = member->*Prev;
  }

  static void Replace(T* member, T* with) {
    if (IsAlone(member)) {
      MakeAlone(with);
      return;
    }
    with->*Next = member->*Next;
    with->*Prev = member->*Prev;
    (with->*Prev)->*Next = with;
    (with->*Next)->*Prev = with;
  }
};

}  // namespace kiv

#endif
