// Other stores, holding the same values under the same names.
#ifndef BENCH_PEERS_HH
#define BENCH_PEERS_HH

#include <memory>
#include <string>

#include "workload.hh"

namespace bench {

// Parameters are named by their place in the workload: a store has its own spelling of the name
// made beforehand, and nothing else.
class Peer {
 public:
  virtual ~Peer() = default;
  virtual std::string title() const = 0;
  // Finds the parameter by its name; some number that depends on what was found.
  virtual size_t read(size_t i) = 0;
  // Finds the parameter by its name and gives it that value.
  virtual void write(size_t i, int which) = 0;
};

std::unique_ptr<Peer> make_libxml2(const Workload& work);
std::unique_ptr<Peer> make_pugixml(const Workload& work);
std::unique_ptr<Peer> make_sqlite(const Workload& work);

// libyang reads documents too, of its own kind: the same elements, with keys.
class Yang : public Peer {
 public:
  virtual void parse(bool validate) = 0;  // its document into a tree that is kept until
  virtual void discard() = 0;             // it is taken down
};
std::unique_ptr<Yang> make_libyang(const Workload& work);

// Splits a full name at its dots.
std::vector<std::string> segments_of(const std::string& name);
bool is_number(const std::string& segment);

}  // namespace bench

#endif
