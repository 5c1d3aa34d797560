// Redis over a unix socket, where a redis-server is installed: a hash a session, a key for each
// unique value, a set of labels for each shared one. What a step sends that does not wait for an
// answer goes out as one message. Times are elapsed times, for the work is done in another process,
// and the memory is that one's.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "workload/peers.h"
#include "workload/redis_server.h"
#include "workload/scenario.h"

namespace workload {
namespace {

using Text = std::string_view;

// A connection that speaks RESP, the protocol of Redis.
class Connection {
 public:
  ~Connection() {
    if (fd_ >= 0) close(fd_);
  }
  Connection() = default;
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  bool open(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    return fd_ >= 0 &&
           connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
  }

  // Adds a command to the message that goes out with the next read.
  void command(std::initializer_list<Text> words) {
    out_ += '*';
    append_line(words.size());
    for (const Text word : words) {
      out_ += '$';
      append_line(word.size());
      out_.append(word).append("\r\n");
    }
    ++n_waiting_;
  }

  // Sends the message and reads an answer to each command; whether all were taken. The answers'
  // texts and numbers, those in arrays too, become the new content of `values`; what is not there
  // has none.
  bool exchange(std::vector<std::string> &values) {
    values.clear();
    bool taken = send();
    for (; n_waiting_ > 0 && taken; --n_waiting_) taken = read_answer(values);
    n_waiting_ = 0;
    return taken;
  }

 private:
  void append_line(size_t number) {
    std::array<char, 24> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    out_.append(text.data(), end).append("\r\n");
  }

  bool send() {
    for (size_t sent = 0; sent < out_.size();) {
      const ssize_t now = write(fd_, out_.data() + sent, out_.size() - sent);
      if (now <= 0) return false;
      sent += static_cast<size_t>(now);
    }
    out_.clear();
    return true;
  }

  // Errors begin with a minus.
  bool read_answer(std::vector<std::string> &values) {
    Text line;
    if (!read_line(line) || line.empty() || line[0] == '-') return false;
    const char kind = line[0];
    const Text rest = line.substr(1);
    if (kind == ':') values.emplace_back(rest);
    if (kind != '$' && kind != '*') return true;
    int64_t size = 0;
    std::from_chars(rest.data(), rest.data() + rest.size(), size);
    if (kind == '$') return size < 0 || read_text(static_cast<size_t>(size), values);
    for (int64_t i = 0; i < size; ++i) {
      if (!read_answer(values)) return false;
    }
    return true;
  }

  bool read_text(size_t size, std::vector<std::string> &values) {
    if (!read_more(size + 2)) return false;
    values.push_back(in_.substr(at_, size));
    at_ += size + 2;
    return true;
  }

  bool read_line(Text &line) {
    for (;;) {
      const size_t end = in_.find("\r\n", at_);
      if (end != std::string::npos) {
        line = Text(in_).substr(at_, end - at_);
        at_ = end + 2;
        return true;
      }
      if (!read_more(in_.size() - at_ + 1)) return false;
    }
  }

  // Until `size` bytes lie behind what has been read.
  bool read_more(size_t size) {
    if (in_.size() - at_ >= size) return true;
    in_.erase(0, at_);
    at_ = 0;
    while (in_.size() < size) {
      std::array<char, 65536> piece;
      const ssize_t now = read(fd_, piece.data(), piece.size());
      if (now <= 0) return false;
      in_.append(piece.data(), static_cast<size_t>(now));
    }
    return true;
  }

  int fd_ = -1;
  std::string out_;
  std::string in_;
  size_t at_ = 0;
  size_t n_waiting_ = 0;
};

// A key of a letter and a value.
class Key {
 public:
  Key(char kind, uint32_t number) {
    text_[0] = kind;
    size_ = static_cast<size_t>(
        std::to_chars(text_.data() + 1, text_.data() + text_.size(), number).ptr - text_.data());
  }
  template <typename Bytes>
  Key(char kind, const Bytes &bytes) {
    text_[0] = kind;
    std::memcpy(text_.data() + 1, bytes.data(), bytes.size());
    size_ = bytes.size() + 1;
  }
  operator Text() const { return {text_.data(), size_}; }
  // The value alone.
  [[nodiscard]] Text value() const { return Text(*this).substr(1); }

 private:
  std::array<char, 32> text_{};
  size_t size_ = 0;
};

template <typename Bytes>
Text bytes_of(const Bytes &bytes) {
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

uint32_t parse(Text text) {
  uint32_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

class RedisPeer {
 public:
  static constexpr clockid_t kClock = CLOCK_MONOTONIC;

  bool open() { return server_.start() && connection_.open(server_.socket()); }
  [[nodiscard]] double resident_bytes() const { return server_.resident_bytes(); }

  bool create(uint32_t label, const Session &session) {
    const Key key('s', label);
    const Text value = key.value();
    const auto text = [](uint64_t number) { return std::to_string(number); };
    connection_.command({"HSET",
                         key,
                         "mac",
                         bytes_of(session.mac),
                         "audit_id",
                         bytes_of(session.audit_id),
                         "ipv4",
                         text(session.ipv4),
                         "session_id",
                         text(session.session_id),
                         "interface_id",
                         text(session.interface_id),
                         "domain",
                         kDomains[session.domain],
                         "method",
                         kMethods[session.method],
                         "user_name",
                         {session.user_name.data(), session.user_name_length},
                         "port",
                         text(session.port),
                         "port_type",
                         text(session.port_type),
                         "service_type",
                         text(session.service_type),
                         "session_time",
                         text(session.session_time),
                         "octets_in",
                         text(session.octets_in),
                         "octets_out",
                         text(session.octets_out),
                         "called_station",
                         bytes_of(session.called_station),
                         "calling_station",
                         bytes_of(session.calling_station)});
    connection_.command({"MSET", Key('m', session.mac), value, Key('a', session.audit_id), value,
                         Key('4', session.ipv4), value, Key('n', session.session_id), value});
    connection_.command({"SADD", Key('i', session.interface_id), value});
    connection_.command({"SADD", Key('d', kDomains[session.domain]), value});
    connection_.command({"SADD", Key('t', kMethods[session.method]), value});
    connection_.command({"SADD", "all", value});
    return connection_.exchange(values_);
  }

  uint32_t find_mac(const Mac &mac) { return number({"GET", Key('m', mac)}); }
  uint32_t find_audit(const AuditId &id) { return number({"GET", Key('a', id)}); }

  uint32_t read_session_time(uint32_t label) {
    return number({"HGET", Key('s', label), "session_time"});
  }
  uint32_t read_interface(uint32_t label) {
    return number({"HGET", Key('s', label), "interface_id"});
  }

  bool update_session_time(uint32_t label, uint32_t value) {
    return ask({"HSET", Key('s', label), "session_time", std::to_string(value)});
  }
  bool update_interface(uint32_t label, uint32_t value) {
    const Key key('s', label);
    const Key from('i', read_interface(label));
    const Key to('i', value);
    connection_.command({"HSET", key, "interface_id", to.value()});
    connection_.command({"SREM", from, key.value()});
    connection_.command({"SADD", to, key.value()});
    return connection_.exchange(values_);
  }

  Labels domain_method(uint8_t domain, uint8_t method) {
    return labels({"SINTER", Key('d', kDomains[domain]), Key('t', kMethods[method])});
  }
  Labels interface_domain(uint32_t interface_id, uint8_t domain) {
    return labels({"SINTER", Key('i', interface_id), Key('d', kDomains[domain])});
  }
  Labels domain_interface(uint8_t domain, uint32_t interface_id) {
    return labels({"SINTER", Key('d', kDomains[domain]), Key('i', interface_id)});
  }
  Labels all_labels() { return labels({"SMEMBERS", "all"}); }

  bool erase(uint32_t label) {
    const Key key('s', label);
    if (!ask({"HMGET", key, "mac", "audit_id", "ipv4", "session_id", "interface_id", "domain",
              "method"}) ||
        values_.size() != 7) {
      return false;
    }
    connection_.command({"DEL", key, Key('m', values_[0]), Key('a', values_[1]),
                         Key('4', values_[2]), Key('n', values_[3])});
    connection_.command({"SREM", Key('i', values_[4]), key.value()});
    connection_.command({"SREM", Key('d', values_[5]), key.value()});
    connection_.command({"SREM", Key('t', values_[6]), key.value()});
    connection_.command({"SREM", "all", key.value()});
    return connection_.exchange(values_);
  }

 private:
  // One command; its answer is in values_.
  bool ask(std::initializer_list<Text> words) {
    connection_.command(words);
    return connection_.exchange(values_);
  }
  uint32_t number(std::initializer_list<Text> words) {
    return ask(words) && !values_.empty() ? parse(values_.front()) : 0;
  }
  Labels labels(std::initializer_list<Text> words) {
    Labels labels;
    ask(words);
    for (const std::string &value : values_) labels.push_back(parse(value));
    return labels;
  }

  RedisServer server_;
  Connection connection_;
  std::vector<std::string> values_;
};

}  // namespace

bool measure_redis(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet) {
  return run_scenario<RedisPeer>(n, create_ns, sheet);
}

}  // namespace workload
