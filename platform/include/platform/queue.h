/* Intrusive queues: an element is any object whose first word the queue may use as its link.
 *
 * Conventions:
 * 1. Nothing is allocated, copied or owned; the caller keeps an element alive while it is queued.
 * 2. One element sits in one queue at a time. Enqueuing it again moves nothing: the old queue then
 *    ends at that element (the last element enqueued again stays where it is).
 * 3. No operation tests its pointers, except where it says so. */
#ifndef PLATFORM_QUEUE_H
#define PLATFORM_QUEUE_H

#include "platform/export.h"

/* First word of every element. */
typedef struct platform_queue_link {
  struct platform_queue_link *next; /* null in the last element */
} platform_queue_link;

/* A queue, embedded in its owner. All zero is an empty queue too. */
typedef struct platform_queue {
  platform_queue_link *head; /* null when empty */
  platform_queue_link *tail; /* null when empty */
} platform_queue;

/* Makes the queue empty. Elements that it held are not touched. Constant time. */
PLATFORM_API void queue_init(platform_queue *queue) PLATFORM_NOEXCEPT;

/* Appends an element at the tail; what its first word held before is ignored. Constant time. */
PLATFORM_API void queue_enqueue(platform_queue *queue, void *element) PLATFORM_NOEXCEPT;

/* The element behind another one.
 * queue    a queue, or null (which holds nothing).
 * element  an element of it, or null to ask for the first.
 * Returns null at the end. Constant time. */
PLATFORM_API void *queue_get_next(const platform_queue *queue,
                                  const void *element) PLATFORM_NOEXCEPT;

/* 1 when the element sits in the queue, else 0, also for a null queue or element. Walks the queue.
 */
PLATFORM_API int queue_entry_in_queue(const platform_queue *queue,
                                      const void *element) PLATFORM_NOEXCEPT;

#endif
