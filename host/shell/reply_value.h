// What the texts in replies say. A reply has 25 bytes of text for each value, of whatever kind, and
// words of its own for a value that is not there; the attribute's kind tells how to read them back.
#pragma once

#include "reply.h"

namespace kivosh {

struct ReadValue {
  enum class State {
    kText,        // `text`
    kNumber,      // `number`
    kTime,        // `text`, in RFC 3339
    kAbsent,      // the session has none; `text` is what replies say then
    kNotCarried,  // replies have no text for such values: nobody knows
    kUnreadable,  // `text`, which is no value of the kind
  };
  State state = State::kText;
  std::string text;
  uint64_t number = 0;
  // The text fills its room and may have been longer. Of a character that it ends within, the bytes
  // are left out.
  bool may_be_cut = false;
};

// attribute  what is behind the value's position; null when nobody knows: the text is shown as it
// is.
ReadValue read_value(const std::string &text, const AttributeName *attribute);

}  // namespace kivosh
