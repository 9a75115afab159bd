#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>

#include "common/text.h"
#include "store.h"
#include "store_floor.h"
#include "store_trace.h"
#include "workloads.h"

namespace bench {
namespace {

constexpr std::size_t children_each = 20;
constexpr std::size_t text_bytes = 200;

const std::string usual_text(text_bytes, 't');
const std::string larger_text(text_bytes * 3 / 2, 'T');

std::uint64_t id_of(std::uint64_t number) {
  return scrambled(number);
}

Node node_at(std::uint64_t number) {
  return {id_of(number), id_of(number / children_each), usual_text};
}

std::string label(const Engine& engine, bool synchronous) {
  return text::concat(engine.name, " (", synchronous ? engine.synchronous_mode : engine.lazy_mode, ")");
}

constexpr Engine quenor = {"Quenor", "lazy", "synchronous", open_quenor};

// Gives a node a text that no node has had, so that no engine finds it written already.
void rewrite(Store& store, std::uint64_t number, std::string text) {
  static std::uint64_t changes = 0;
  changes += 1;
  for (unsigned i = 0; i < 8; ++i)
    text[i] = static_cast<char>('a' + (changes >> 4 * i & 15));
  store.rewrite({id_of(number), id_of(number / children_each), text});
}
void rewrite_same_size(Store& store, std::uint64_t number, std::size_t) {
  rewrite(store, number, usual_text);
}
void rewrite_larger(Store& store, std::uint64_t number, std::size_t) {
  rewrite(store, number, larger_text);
}

void fill(Store& store, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    store.store(node_at(i));
}

Outcome store_nodes(const Options& options, OpenStore open, StoreSettings settings, std::size_t count) {
  settings.directory = fresh_directory(options, "store");
  const auto store = open(settings);
  const Clock whole;
  Outcome outcome = timed_operations(count, 1, [&](std::size_t i) { store->store(node_at(i)); });
  store->sync();
  outcome.figure = static_cast<double>(count) / whole.seconds() / 1000;
  return outcome;
}

Contestant storing(const Options& options, const Engine& engine, const StoreSettings& settings,
                   std::size_t count, Target target) {
  return {label(engine, settings.synchronous),
          [=] { return store_nodes(options, engine.open, settings, count); }, target};
}

// What `count` stores write, and after them `rewrites` of nodes that outgrow their objects.
Trace traced(const Options& options, StoreSettings settings, std::size_t count, std::size_t rewrites) {
  settings.directory = fresh_directory(options, "store");
  const auto store = open_quenor(settings);
  TraceRecorder recorder;
  for (std::size_t i = 0; i < count; ++i) {
    store->store(node_at(i));
    recorder.end_operation();
  }
  for (std::size_t i = 0; i < rewrites; ++i) {
    rewrite_larger(*store, scrambled(i) % count, i);
    recorder.end_operation();
  }
  return recorder.trace();
}

// Writes what was written by `count` stores, or, when there are any, by `rewrites` of nodes that outgrow
// their objects after them.
Contestant at_the_floor(const Options& options, const StoreSettings& settings, std::size_t count,
                        std::size_t rewrites) {
  const auto trace = std::make_shared<const Trace>(traced(options, settings, count, rewrites));
  const auto run = [=, &options] {
    StoreSettings floor_settings = settings;
    floor_settings.directory = fresh_directory(options, "store");
    const std::size_t untimed = rewrites == 0 ? 0 : count;
    return operations_at_the_floor(floor_settings, *trace, untimed, trace->operation_count() - untimed);
  };
  return {"floor", run, at_least(0.8)};
}

std::uint64_t percent(double ratio) {
  return static_cast<std::uint64_t>(ratio * 100 + 0.5);
}

// Thousands a second, of those whose cost shall not grow more than that of the others with the store.
struct Rates {
  double quenor = 0;
  double floor = 0;
  double lmdb = 0;
};

Rates store_of(const Options& options, std::size_t count, std::uint64_t journal_bytes) {
  const StoreSettings settings{.journal_bytes = journal_bytes};
  std::vector<Contestant> contestants = {
      {"Quenor", [&] { return store_nodes(options, open_quenor, settings, count); }},
      storing(options, lmdb, settings, count, at_least(0.6)),
      at_the_floor(options, settings, count, 0),
      storing(options, sqlite, settings, count, at_least(2)),
      storing(options, rocksdb, settings, count, {})};
  if (count <= 100'000)  // the largest store takes minutes, and says no more of the locks
    contestants.push_back(storing(options, exclusive_sqlite, settings, count, {}));
  const auto figures = contest(
      options, text::concat("store ", count, ", journal ", journal_bytes >> 20, " MiB"), "k/s", contestants);
  return {.quenor = figures[0], .floor = figures[2], .lmdb = figures[1]};
}

void remark_growth(const Rates& smallest, const Rates& larger) {
  remark(text::concat("one costs ", percent(smallest.quenor / larger.quenor),
                      " % of what it does in the smallest store, at the floor ",
                      percent(smallest.floor / larger.floor), " %, with LMDB ",
                      percent(smallest.lmdb / larger.lmdb), " %"));
}

// What is done to a store that has been filled once, and is put back as it was when it was changed.
struct Task {
  std::string name;
  std::size_t stored;
  std::size_t operations;
  std::size_t sampled = 1;
  void (*operation)(Store& store, std::uint64_t random, std::size_t number);
  void (*undo)(Store& store, std::uint64_t random, std::size_t number) = nullptr;
};

std::uint64_t sink = 0;  // so that nothing that is read can be left out

std::filesystem::path prepared(const Options& options, const Engine& engine, std::size_t count) {
  const std::filesystem::path directory = options.directory / text::concat(engine.name, '-', count);
  if (!std::filesystem::exists(directory)) {
    std::filesystem::create_directories(directory);
    fill(*engine.open({.directory = directory}), count);
  }
  return directory;
}

Outcome run_task(const Options& options, const Engine& engine, const Task& task, std::uint64_t round) {
  const StoreSettings settings{.directory = prepared(options, engine, task.stored)};
  const auto store = engine.open(settings);
  const auto drawn = [&](std::size_t i) { return scrambled(round << 32 | i) % task.stored; };
  const std::size_t warming = std::min<std::size_t>(task.stored, task.operations);
  for (std::size_t i = 0; i < warming; ++i)
    sink += store->get(id_of(drawn(i)));
  const Clock whole;
  Outcome outcome = timed_operations(task.operations, task.sampled,
                                     [&](std::size_t i) { task.operation(*store, drawn(i), i); });
  store->sync();
  outcome.figure = static_cast<double>(task.operations) / whole.seconds() / 1000;
  for (std::size_t i = 0; task.undo != nullptr && i < task.operations; ++i)
    task.undo(*store, drawn(i), i);
  return outcome;
}

struct Sibling {
  Engine engine;
  Target target;
};

void compare(const Options& options, const Task& task, const std::vector<Sibling>& siblings,
             const std::optional<Contestant>& floor = std::nullopt) {
  std::vector<Contestant> contestants;
  const auto add = [&](const Engine& engine, const std::string& name, Target target) {
    prepared(options, engine, task.stored);
    contestants.push_back(
        {name, [=, round = std::uint64_t{0}]() mutable { return run_task(options, engine, task, ++round); },
         target});
  };
  add(quenor, "Quenor", {});
  if (floor.has_value())
    contestants.push_back(*floor);
  for (const Sibling& sibling : siblings)
    add(sibling.engine, label(sibling.engine, false), sibling.target);
  contest(options, text::concat(task.name, " of ", task.stored), "k/s", contestants);
}

std::size_t usual_store(const Options& options) {
  return options.sized(100'000, 3'000);
}

}  // namespace

std::filesystem::path prepared_quenor(const Options& options, std::size_t count) {
  return prepared(options, quenor, count);
}

std::uint64_t folded(std::string_view bytes) {
  std::uint64_t sum = 0;
  for (; bytes.size() >= sizeof sum; bytes.remove_prefix(sizeof sum)) {
    std::uint64_t word;
    std::memcpy(&word, bytes.data(), sizeof word);
    sum += word;
  }
  for (const char byte : bytes)
    sum += static_cast<unsigned char>(byte);
  return sum;
}

void run_store(const Options& options) {
  for (const std::uint64_t journal_bytes : {std::uint64_t{8} << 20, std::uint64_t{128} << 20}) {
    const Rates smallest = store_of(options, options.sized(10'000, 100), journal_bytes);
    for (const std::size_t count : {100'000U, 1'000'000U})
      remark_growth(smallest, store_of(options, options.sized(count, count / 100), journal_bytes));
  }
}

void run_store_sync(const Options& options) {
  const StoreSettings settings{.synchronous = true};
  const std::size_t count = options.sized(2'000, 100);
  const Trace trace = traced(options, settings, count, 0);
  const auto overwriting = [&](bool stamp) {
    StoreSettings floor_settings = settings;
    floor_settings.directory = fresh_directory(options, "store");
    return overwrite_and_flush(floor_settings, trace, stamp);
  };
  contest(options, text::concat("store-sync ", count), "k/s",
          {{"Quenor", [&] { return store_nodes(options, open_quenor, settings, count); }},
           {"overwrite and flush", [&] { return overwriting(false); }, at_least(0.7)},
           {"floor: the same and the stamp", [&] { return overwriting(true); }, at_least(0.8)},
           storing(options, sqlite, settings, count, at_least(1)),
           storing(options, exclusive_sqlite, settings, count, {}),
           storing(options, lmdb, settings, count, {}),
           storing(options, rocksdb, settings, count, {})});
}

void run_get(const Options& options) {
  const auto get = [](Store& store, std::uint64_t random, std::size_t) { sink += store.get(id_of(random)); };
  Task task{.name = "get",
            .stored = usual_store(options),
            .operations = options.sized(1'000'000, 10'000),
            .sampled = 16,
            .operation = get};
  compare(options, task, {{sqlite, at_least(4)}, {lmdb, at_least(0.75)}, {rocksdb, {}}});
  task.stored = options.sized(1'000'000, 10'000);
  compare(options, task, {{sqlite, at_least(1)}, {lmdb, {}}, {rocksdb, {}}});
}

void run_children(const Options& options) {
  compare(options,
          {.name = "children",
           .stored = usual_store(options),
           .operations = options.sized(100'000, 1'000),
           .operation = [](Store& store, std::uint64_t random,
                           std::size_t) { sink += store.children(id_of(random / children_each)); }},
          {{sqlite, at_least(2)}, {lmdb, {}}, {rocksdb, {}}});
}

void run_re_parent(const Options& options) {
  compare(options,
          {.name = "re-parent",
           .stored = usual_store(options),
           .operations = options.sized(20'000, 200),
           .operation = [](Store& store, std::uint64_t random,
                           std::size_t number) { store.re_parent(id_of(random), id_of(number)); },
           .undo = [](Store& store, std::uint64_t random,
                      std::size_t) { store.re_parent(id_of(random), id_of(random / children_each)); }},
          {{sqlite, at_least(1)}, {lmdb, {}}, {rocksdb, {}}});
}

void run_rewrite(const Options& options) {
  const std::size_t operations = options.sized(20'000, 200);
  compare(options,
          {.name = "rewrite, same size,",
           .stored = usual_store(options),
           .operations = operations,
           .operation = rewrite_same_size},
          {{sqlite, at_least(1)}, {lmdb, {}}, {rocksdb, {}}});
  compare(options,
          {.name = "rewrite, larger,",
           .stored = usual_store(options),
           .operations = operations,
           .operation = rewrite_larger,
           .undo = [](Store& store, std::uint64_t random, std::size_t) { store.rewrite(node_at(random)); }},
          {{sqlite, at_least(1)}, {lmdb, {}}, {rocksdb, {}}},
          at_the_floor(options, {}, usual_store(options), operations));
}

void run_free(const Options& options) {
  compare(options,
          {.name = "free",
           .stored = usual_store(options),
           .operations = options.sized(20'000, 200),
           .operation = [](Store& store, std::uint64_t, std::size_t number) { store.free(id_of(number)); },
           .undo = [](Store& store, std::uint64_t, std::size_t number) { store.store(node_at(number)); }},
          {{sqlite, at_least(1)}, {lmdb, {}}, {rocksdb, {}}});
}

}  // namespace bench
