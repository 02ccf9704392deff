#include "app/ScriptValues.h"

#include <gmock/gmock.h>

#include <cmath>

#include "app/ScriptError.h"
#include "tests/app/ScriptWorld.h"

namespace kv::test {
namespace {

using Dictionary = PropertyList::Dictionary;
using Array = PropertyList::Array;

/// `core`, nested a hundred deep in arrays.
PropertyList nested(PropertyList core) {
  for (int level = 0; level < 100; ++level) core = Array{std::move(core)};
  return core;
}

/// `core` at the end of 500 dictionaries, each in the one before.
PropertyList nestedInDictionaries(PropertyList core) {
  for (int level = 0; level < 500; ++level) core = Dictionary{{"next", std::move(core)}};
  return core;
}

/// Records with members of all kinds; some have members more.
Array manyRecords(int count) {
  Array records;
  for (int i = 0; i < count; ++i) {
    Dictionary record{{"name", "set " + std::to_string(i)},
                      {"number", i},
                      {"real", i + 0.5},
                      {"isOn", i % 2 == 0},
                      {"date", Date::fromUnixSeconds(i)},
                      {"bytes", PropertyList::Data(1, static_cast<std::uint8_t>(i))},
                      {"list", Array{i, "x", Array{}}},
                      {"more", Dictionary{{"deep", Dictionary{{"i", i}}}}}};
    if (i % 3 == 0) record.set("__proto__", Array{i});
    if (i % 5 == 0) record.set("no name, but a key\"", i);
    records.emplace_back(std::move(record));
  }
  return records;
}

struct ScriptValuesTest : testing::Test {
  std::optional<PropertyList> read(const std::string& expression) {
    return values_.toPropertyList(world_.value("(" + expression + ")"));
  }
  ScriptWorld world_;
  ScriptValues& values_ = world_.application->scripts().values();
};

TEST_F(ScriptValuesTest, AScriptGetsItsOwnKindOfValues) {
  const PropertyList::Data bytes = {0, 255, 7};
  const std::tuple<PropertyList, const char*, const char*> kCases[] = {
      {"Größe \U0001F600", "v + v.length", "Größe \U0001F6008"},
      {std::string("\xFFx"), "v.charCodeAt(0)", "65533"},
      {Date::fromUnixSeconds(-62135596799.75), "v.toISOString()", "0001-01-01T00:00:00.250Z"},
      {Date{Seconds(1e300)}, "v instanceof Date && v.getTime()", "NaN"},
      {bytes, "v instanceof ArrayBuffer && new Uint8Array(v).join()", "0,255,7"},
      {Array{1, "x", Array{bytes, Dictionary{}}}, "JSON.stringify(v)", "[1,\"x\",[{},{}]]"},
      // Keys that mean something to objects are members like any other.
      {Dictionary{{"__proto__", Array{1}}, {"constructor", 2}, {"toString", 3}, {"", 4}},
       "Object.getPrototypeOf(v) === Object.prototype && Object.keys(v) + v.__proto__.length",
       "__proto__,constructor,toString,1"},
      {Dictionary{{"10", "a"}, {"length", 3}, {"2", "b"}}, "v[10] + v[2] + v.length", "ab3"},
      {nested(nested(nested("x"))), "let n = 0; for (; Array.isArray(v); v = v[0]) ++n; n + v",
       "300x"},
      {nestedInDictionaries("x"), "let n = 0; for (; typeof v === 'object'; v = v.next) ++n; n + v",
       "500x"},
  };
  for (const auto& [value, code, shown] : kCases) {
    world_.application->scripts().engine().globalObject().setProperty(
        "v", values_.fromPropertyList(&value));
    EXPECT_EQ(world_.show(code), shown) << code << value.description();
  }
}

TEST_F(ScriptValuesTest, RecordsOfManyKindsComeBackAsTheyWere) {
  // Thrice: what many records share is remembered, and used from then on.
  for (int round = 0; round < 3; ++round) {
    const PropertyList records(manyRecords(200));
    EXPECT_EQ(values_.toPropertyList(values_.fromPropertyList(&records)), records) << round;
  }
}

TEST_F(ScriptValuesTest, KeysAreNeverRunAsCode) {
  world_.script("var hasRun = false; function run() { hasRun = true; }");
  for (const char* key : {"a\": run(), \"b", "[run()]", "a\\", "a\nb",
                          "a\xE2\x80\xA8"
                          "b",
                          "__proto__", "0: run(), a", "get a() { return run(); }, b"}) {
    // Often enough for the engine to compile what it makes such records with.
    const PropertyList records(Array(100, Dictionary{{key, 1}, {"c", key}}));
    EXPECT_EQ(values_.toPropertyList(values_.fromPropertyList(&records)), records) << key;
  }
  EXPECT_EQ(world_.show("hasRun"), "false");
}

TEST_F(ScriptValuesTest, RecordsThatAreAllDifferentComeBackTooEveryTime) {
  for (int round = 0; round < 3; ++round) {
    Array records;
    for (int i = 0; i < 1500; ++i) {
      records.emplace_back(Dictionary{{"key " + std::to_string(round * 700 + i), i}});
    }
    records.emplace_back(Dictionary{{std::string(300'000, 'k'), round}});
    const PropertyList list(std::move(records));
    EXPECT_EQ(values_.toPropertyList(values_.fromPropertyList(&list)), list) << round;
  }
}

TEST_F(ScriptValuesTest, TheProgramGetsPropertyLists) {
  world_.script("var deep = 'core'; for (let i = 0; i < 5000; ++i) deep = [deep];");
  const std::pair<const char*, std::optional<PropertyList>> kCases[] = {
      {"-Math.pow(2, 63)", -0x1p63},
      {"new Date(1709631000250)", Date::fromUnixSeconds(1709631000.25)},
      {"new Uint16Array([1, 2, 3]).subarray(1, 2)", PropertyList::Data{2, 0}},
      {"[1, null, 'x', undefined]", Array{1, "", "x", ""}},
      {"{b: 1, a: null, c: [{}], d() {}}", Dictionary{{"b", 1}, {"c", Array{Dictionary{}}}}},
      {"Object.defineProperty({}, '__proto__', {value: 1, enumerable: true})",
       Dictionary{{"__proto__", 1}}},
      {"(o => { o.self = o; o.list = [o, 1]; return o; })({})", Dictionary{{"list", Array{"", 1}}}},
      // The same object twice is no cycle.
      {"(o => [o, o])({a: 1})", Array{Dictionary{{"a", 1}}, Dictionary{{"a", 1}}}},
      {"deep", nested("")},  // what lies deeper is left out
  };
  for (const auto& [expression, value] : kCases) EXPECT_EQ(read(expression), value) << expression;
  const auto invalid = read("new Date(NaN)");
  ASSERT_TRUE(invalid && invalid->as<Date>());
  EXPECT_TRUE(std::isnan(invalid->as<Date>()->sinceReference.count()));
}

TEST_F(ScriptValuesTest, WhatIsTooMuchThrows) {
  // Each level holds the next one twice: 2^40 members from forty objects.
  world_.script("var o = {}; for (let i = 0; i < 40; ++i) o = [o, o];");
  EXPECT_THROW(read("o"), ScriptError);
}

}  // namespace
}  // namespace kv::test
