#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>

#include "peers.hh"

namespace bench {
namespace {

// One table in memory, the full name its primary key; used by one thread, never rolled back.
class Sqlite : public Peer {
 public:
  explicit Sqlite(const Workload& work) : work_(work) {
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    expect(sqlite3_open_v2(":memory:", &base_, kFlags, nullptr), SQLITE_OK);
    run("PRAGMA journal_mode = OFF");
    run("CREATE TABLE parameter (path TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID");
    prepare("INSERT INTO parameter VALUES (?1, ?2)", &write_);
    run("BEGIN");
    for (const size_t i : work.in_tree_order()) write(i, 0);
    run("COMMIT");
    sqlite3_finalize(write_);
    prepare("UPDATE parameter SET value = ?2 WHERE path = ?1", &write_);
    prepare("SELECT value FROM parameter WHERE path = ?1", &read_);
    run("BEGIN");
  }
  ~Sqlite() override {
    sqlite3_finalize(read_);
    sqlite3_finalize(write_);
    sqlite3_close(base_);
  }
  Sqlite(const Sqlite&) = delete;
  Sqlite& operator=(const Sqlite&) = delete;

  std::string title() const override { return "SQLite"; }

  size_t read(size_t i) override {
    bind(read_, 1, work_.names[i]);
    expect(sqlite3_step(read_), SQLITE_ROW);
    const size_t seen = sqlite3_column_text(read_, 0)[0];
    sqlite3_reset(read_);
    return seen;
  }

  void write(size_t i, int which) override {
    bind(write_, 1, work_.names[i]);
    bind(write_, 2, work_.parameters[i].values[which].text);
    expect(sqlite3_step(write_), SQLITE_DONE);
    sqlite3_reset(write_);
  }

 private:
  void expect(int result, int wanted) {
    if (result == wanted) return;
    std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(base_));
    std::abort();
  }
  void run(const char* text) {
    expect(sqlite3_exec(base_, text, nullptr, nullptr, nullptr), SQLITE_OK);
  }
  void prepare(const char* text, sqlite3_stmt** statement) {
    expect(sqlite3_prepare_v3(base_, text, -1, SQLITE_PREPARE_PERSISTENT, statement, nullptr),
           SQLITE_OK);
  }
  static void bind(sqlite3_stmt* statement, int at, std::string_view text) {
    sqlite3_bind_text(statement, at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
  }

  const Workload& work_;
  sqlite3* base_ = nullptr;
  sqlite3_stmt* read_ = nullptr;
  sqlite3_stmt* write_ = nullptr;
};

}  // namespace

std::unique_ptr<Peer> make_sqlite(const Workload& work) { return std::make_unique<Sqlite>(work); }

}  // namespace bench
