#include <cstdlib>
#include <random>

#include "tests/store/model_world.h"
#include "tests/support/creators_table.h"

namespace roster::testing {
namespace {

using model::Op;
using model::Step;
using model::Texts;
using model::World;

/// Of each of four tests, which may run side by side.
unsigned sequences() {
  constexpr unsigned few = ROSTER_TEST_SEQUENCES / 10;
  constexpr unsigned many = ROSTER_TEST_SEQUENCES / 2;
  return areTestsLong() ? many : few;
}
constexpr unsigned stepsOfASequence = 10;

struct Weight {
  Op op;
  unsigned weight;
};

std::vector<Op> drawnFrom(const std::vector<Weight>& weights) {
  std::vector<Op> ops;
  for (const Weight& each : weights) ops.insert(ops.end(), each.weight, each.op);
  return ops;
}

/// The file gets a few accounts, then anything may happen; in every fourth sequence nothing that takes away.
std::vector<Step> stepsOf(std::uint64_t seed) {
  static const std::vector<Op> first = drawnFrom({{Op::outsideAdd, 2}, {Op::outsideChild, 1}});
  static const std::vector<Op> accounts = drawnFrom({{Op::outsideAdd, 1}});
  static const std::vector<Op> adding = drawnFrom(
      {{Op::insert, 2}, {Op::set, 4}, {Op::lists, 3}, {Op::addChild, 2}, {Op::refresh, 2}, {Op::sync, 4}});
  static const std::vector<Op> all = drawnFrom({{Op::outsideAdd, 10},
                                                {Op::outsideAddNameless, 2},
                                                {Op::outsideAddUnusable, 2},
                                                {Op::outsideRemove, 3},
                                                {Op::outsideSet, 3},
                                                {Op::outsideChild, 8},
                                                {Op::damage, 3},
                                                {Op::garbage, 1},
                                                {Op::remove, 2},
                                                {Op::empty, 1},
                                                {Op::load, 3},
                                                {Op::insert, 8},
                                                {Op::erase, 8},
                                                {Op::set, 14},
                                                {Op::unset, 4},
                                                {Op::lists, 14},
                                                {Op::addChild, 8},
                                                {Op::removeChild, 6},
                                                {Op::changeChild, 8},
                                                {Op::move, 14},
                                                {Op::refresh, 16},
                                                {Op::sync, 24},
                                                {Op::save, 4}});
  std::mt19937_64 random(seed);
  const bool isAdding = seed % 4 == 0;
  std::vector<Step> steps;
  for (unsigned i = 0; i < stepsOfASequence; ++i) {
    const std::uint64_t bits = random();
    const std::vector<Op>& ops = i < 3 ? (isAdding ? accounts : first) : isAdding ? adding : all;
    const auto number = [&](unsigned shift) { return static_cast<unsigned>(bits >> shift & 255); };
    steps.push_back({ops[(bits >> 40) % ops.size()], number(0) % 3, number(8), number(16), number(24)});
  }
  if (seed % 8 == 1 || isAdding) steps.push_back({Op::rest, 0, 0, 0, 0});
  return steps;
}

class RefreshModel : public CreatorsTableTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  void SetUp() override {
    CreatorsTableTest::SetUp();
    const Dictionary entry =
        creatorEntry("NotifierAccount", "Listener", thisLibrary, dataclassArray("Mail Contacts Notes"));
    writeCreators({{"T", array(entry)}});
    const auto note = [this](const Array& changes) {
      for (const Value& change : changes) {
        const Dictionary record = *change.dictionary();
        heard.push_back(formatted("%@ %@", record.find("ChangeType"), record.find("AccountID")));
      }
    };
    registerClass(ClassObject("Listener").answering(AccountNotifierProtocol{note}));
  }

  /// What goes wrong, with the story up to it; nothing when all is well.
  std::string fault(const std::vector<Step>& steps) {
    heard.clear();
    log.clear();
    World world(device, heard);
    try {
      world.run(steps);
    } catch (const std::exception& failure) {
      return world.story() + "  " + failure.what();
    }
    return {};
  }
  std::string faultOfFewestSteps(std::vector<Step> steps) {
    std::string last = fault(steps);
    for (bool isAnyLeftOut = true; std::exchange(isAnyLeftOut, false);) {
      for (std::size_t i = steps.size(); i-- > 0;) {
        std::vector<Step> fewer;
        for (std::size_t each = 0; each < steps.size(); ++each) {
          if (each != i) fewer.push_back(steps[each]);
        }
        const std::string found = fault(fewer);
        if (found.empty()) continue;
        steps = fewer;
        last = found;
        isAnyLeftOut = true;
      }
    }
    return last;
  }

  Texts heard;
};

TEST_P(RefreshModel, MemoryAndFileAreAsTheRulesHaveIt) {
  const char* given = std::getenv("ROSTER_MODEL_SEED");
  const std::uint64_t first = given ? std::strtoull(given, nullptr, 10) : std::uint64_t{GetParam()} * 1000000;
  for (std::uint64_t seed = first; seed < first + (given ? 1 : sequences()); ++seed) {
    const std::vector<Step> steps = stepsOf(seed);
    if (fault(steps).empty()) continue;
    FAIL() << "ROSTER_MODEL_SEED=" << seed << "\n" << faultOfFewestSteps(steps);
  }
}

INSTANTIATE_TEST_SUITE_P(Sequences, RefreshModel, ::testing::Range(0U, 4U));

}  // namespace
}  // namespace roster::testing
