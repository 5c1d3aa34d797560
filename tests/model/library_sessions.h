// The library's side of the model test: each operation is one call of an exported function, its
// outputs put into an Answer, and what it handed out given back. One object at a time: change
// callbacks find it through a pointer of the process.
#pragma once

#include "model/sessions.h"
#include "platform/queue.h"

namespace kivo_model {

class LibrarySessions final : public Sessions {
 public:
  // Creates both databases and registers for the changes of all their accel types.
  LibrarySessions();
  ~LibrarySessions() override;

  KIVO_MODEL_OPERATIONS(KIVO_MODEL_OVERRIDE)

  // Blocks of label lists that are out, those of the lists and queries of this object included.
  static uint64_t live_list_blocks();

 private:
  class List;
  static void on_change(kivo_db *db, uint32_t label, uint32_t n_values,
                        const kivo_attr_value *new_values, const kivo_attr_value *old_values,
                        uint32_t action, platform_queue *handles);
  void free_list_in_hand() override;
  Answer query_state(uint32_t query, uint32_t status, uint32_t flag);

  kivo_db *dbs_[kDatabases + 1] = {};  // the last is null
  platform_queue_link handles_[kDatabases][kTypeCount] = {};
  uint32_t list_in_hand_ = 0;
  kivo_maqi queries_[kQueries] = {};
  kivo_index_list *lists_[kLists + 1] = {};
  kivo_index_list bad_list_ = {};
};

}  // namespace kivo_model
