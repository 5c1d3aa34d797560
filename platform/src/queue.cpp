// Intrusive queues: singly linked, with the link in the element's own first word.
// Invariants: head and tail are both null or both not; the tail's link is null.
// Threads: none; the process serialises all calls.
#include "platform/queue.h"

void queue_init(platform_queue *queue) noexcept { *queue = {nullptr, nullptr}; }

void queue_enqueue(platform_queue *queue, void *element) noexcept {
  auto *link = static_cast<platform_queue_link *>(element);
  link->next = nullptr;
  if (queue->head == nullptr) {
    queue->head = link;
  } else if (queue->tail != link) {  // the tail linked to itself would be a walk without an end
    queue->tail->next = link;
  }
  queue->tail = link;
}

void *queue_get_next(const platform_queue *queue, const void *element) noexcept {
  if (queue == nullptr) return nullptr;
  if (element == nullptr) return queue->head;
  return static_cast<const platform_queue_link *>(element)->next;
}

int queue_entry_in_queue(const platform_queue *queue, const void *element) noexcept {
  if (queue == nullptr) return 0;
  const platform_queue_link *link = queue->head;
  while (link != nullptr && link != element) link = link->next;
  return link != nullptr;
}
