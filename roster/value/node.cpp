#include "roster/value/node.h"

#include <cstdint>

namespace roster {

void Node::destroy(const Node* node) noexcept {
  thread_local bool isDestroying = false;
  thread_local const Node* doomed = nullptr;
  if (isDestroying) {
    // Nobody counts references any more: the counter links the waiting nodes, so that nothing is allocated.
    node->references_.store(reinterpret_cast<std::uintptr_t>(doomed), std::memory_order_relaxed);
    doomed = node;
    return;
  }
  isDestroying = true;
  delete node;
  while (doomed != nullptr) {
    const Node* next = doomed;
    doomed = reinterpret_cast<const Node*>(next->references_.load(std::memory_order_relaxed));
    delete next;
  }
  isDestroying = false;
}

}  // namespace roster
