// The sessions that the store's measurements work on: a number makes a session, and a fixed seed
// its labels, so that two runs, and two containers in one run, hold the same. Eight attributes,
// seven of them indexed: of a million sessions 48 share an interface, an eighth a domain, a quarter
// a method.
#pragma once

#include <cstdint>
#include <vector>

#include "kivo/kivo.h"

namespace bench {

inline constexpr const char *kDomains[] = {"example.com", "example.net", "example.org",
                                           "example.edu", "a.example",   "b.example",
                                           "c.example",   "d.example"};
inline constexpr const char *kMethods[] = {"radius", "local", "remote", "mac"};

// A peer's record, with what the database's has in fields of fixed size.
struct Session {
  uint8_t mac[6];
  char audit_session_id[25];
  uint32_t ipv4;
  uint32_t interface_id;
  uint8_t domain;  // in kDomains
  uint8_t method;  // in kMethods
  char session_id[9];
  char user_name[25];
};

Session make_session(uint32_t number);

// n labels, anywhere in 32 bits, each once.
std::vector<uint32_t> make_labels(uint64_t n);

// The database of these sessions, its indexes declared; null when that fails.
kivo_db *open_database();

// One creation as a client does it: a record, and one attribute list written into it.
bool create(kivo_db *db, uint32_t label, const Session &session);

}  // namespace bench
