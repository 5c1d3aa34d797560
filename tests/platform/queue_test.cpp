// Intrusive queues, as an owner of elements sees them.
#include "platform/queue.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Element {
  platform_queue_link link;
  int number;
};

std::vector<int> numbers_of(const platform_queue &queue) {
  std::vector<int> numbers;
  for (void *at = queue_get_next(&queue, nullptr); at != nullptr; at = queue_get_next(&queue, at)) {
    numbers.push_back(static_cast<Element *>(at)->number);
  }
  return numbers;
}

class QueueTest : public ::testing::Test {
 protected:
  QueueTest() {
    // What a link held before must not matter, so it points somewhere real.
    for (Element *element : {&a_, &b_, &c_}) element->link.next = &stranger_.link;
    queue_init(&queue_);
  }

  Element stranger_{{nullptr}, 99};
  Element a_{{nullptr}, 1};
  Element b_{{nullptr}, 2};
  Element c_{{nullptr}, 3};
  platform_queue queue_{&stranger_.link, &stranger_.link};
};

TEST_F(QueueTest, KeepsTheOrderOfEnqueuing) {
  EXPECT_EQ(nullptr, queue_get_next(&queue_, nullptr));
  for (Element *element : {&b_, &a_, &c_}) queue_enqueue(&queue_, element);
  EXPECT_EQ((std::vector<int>{2, 1, 3}), numbers_of(queue_));
}

TEST_F(QueueTest, TellsWhoIsIn) {
  queue_enqueue(&queue_, &a_);
  queue_enqueue(&queue_, &b_);
  EXPECT_EQ(1, queue_entry_in_queue(&queue_, &a_));
  EXPECT_EQ(1, queue_entry_in_queue(&queue_, &b_));
  EXPECT_EQ(0, queue_entry_in_queue(&queue_, &c_));
  EXPECT_EQ(0, queue_entry_in_queue(&queue_, nullptr));
}

TEST_F(QueueTest, AllZeroIsAnEmptyQueueAndNullHoldsNothing) {
  platform_queue zero{};
  queue_enqueue(&zero, &a_);
  EXPECT_EQ((std::vector<int>{1}), numbers_of(zero));
  EXPECT_EQ(nullptr, queue_get_next(nullptr, nullptr));
  EXPECT_EQ(nullptr, queue_get_next(nullptr, &a_));
  EXPECT_EQ(0, queue_entry_in_queue(nullptr, &a_));
}

TEST_F(QueueTest, ElementMovedToAnotherQueueEndsTheOldOne) {
  for (Element *element : {&a_, &b_, &c_}) queue_enqueue(&queue_, element);
  platform_queue other{};
  queue_enqueue(&other, &b_);
  EXPECT_EQ((std::vector<int>{1, 2}), numbers_of(queue_));
  EXPECT_EQ((std::vector<int>{2}), numbers_of(other));
}

TEST_F(QueueTest, LastElementEnqueuedAgainStaysWhereItIs) {
  queue_enqueue(&queue_, &a_);
  queue_enqueue(&queue_, &b_);
  queue_enqueue(&queue_, &b_);
  ASSERT_EQ(nullptr, queue_get_next(&queue_, &b_));
  queue_enqueue(&queue_, &c_);
  EXPECT_EQ((std::vector<int>{1, 2, 3}), numbers_of(queue_));
}

}  // namespace
