#include "app/ScriptValues.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "app/ScriptError.h"
#include "tests/app/ScriptWorld.h"

namespace kv::test {
namespace {

using Dictionary = PropertyList::Dictionary;
using Array = PropertyList::Array;

/// A value nested `levels` deep in arrays.
PropertyList nested(int levels) {
  PropertyList value("core");
  for (int level = 0; level < levels; ++level) value = Array{std::move(value)};
  return value;
}

class ScriptValuesTest : public testing::Test {
 protected:
  /// What the function `code` shows of the value that a script gets.
  std::string shown(const PropertyList& value, const std::string& code) {
    world_.application->scripts().engine().globalObject().setProperty(
        "v", values().fromPropertyList(&value));
    return world_.show(code);
  }
  std::optional<PropertyList> read(const std::string& expression) {
    return values().toPropertyList(world_.value("(" + expression + ")"));
  }
  ScriptValues& values() { return world_.application->scripts().values(); }
  ScriptWorld world_;
};

TEST_F(ScriptValuesTest, AScriptGetsItsOwnKindOfValues) {
  const PropertyList::Data bytes = {0, 255, 7};
  struct {
    PropertyList value;
    const char* code;
    const char* shown;
  } const kCases[] = {
      {"", "typeof v + v.length", "string0"},
      {"Größe \U0001F600", "v + v.length", "Größe \U0001F6008"},
      {std::string("a\0b", 3), "v.length", "3"},
      {std::string("\xFFx"), "v.charCodeAt(0)", "65533"},
      {-5, "typeof v + v", "number-5"},
      {std::numeric_limits<std::int64_t>::min(), "v === -Math.pow(2, 63)", "true"},
      {std::numeric_limits<std::uint64_t>::max(), "v === Math.pow(2, 64)", "true"},
      {0.25, "v", "0.25"},
      {std::nan(""), "v !== v", "true"},
      {true, "v === true", "true"},
      {false, "v === false", "true"},
      {Date::fromUnixSeconds(1709631000.25), "v instanceof Date && v.toISOString()",
       "2024-03-05T09:30:00.250Z"},
      {Date::fromUnixSeconds(-62135596800.0), "v.toISOString()", "0001-01-01T00:00:00.000Z"},
      {Date{Seconds(std::nan(""))}, "v instanceof Date && v.getTime()", "NaN"},
      {Date{Seconds(1e300)}, "v instanceof Date && v.getTime()", "NaN"},
      {bytes, "v instanceof ArrayBuffer && new Uint8Array(v).join()", "0,255,7"},
      {PropertyList::Data{}, "v instanceof ArrayBuffer && v.byteLength", "0"},
      {PropertyList::Uid{7}, "JSON.stringify(v)", "{\"CF$UID\":7}"},
      {Array{}, "Array.isArray(v) && v.length", "0"},
      {Array{1, "x", Array{bytes, Dictionary{}}}, "JSON.stringify(v)", "[1,\"x\",[{},{}]]"},
      {Dictionary{{"z", 1}, {"a", 2}}, "JSON.stringify(v)", "{\"z\":1,\"a\":2}"},
      // Keys that mean something to objects are members like any other.
      {Dictionary{{"__proto__", Array{1}}, {"constructor", 2}, {"toString", 3}, {"", 4}},
       "Object.getPrototypeOf(v) === Object.prototype && Object.keys(v).join() + "
       "v.__proto__.length",
       "__proto__,constructor,toString,1"},
      {Dictionary{{"10", "a"}, {"length", 3}, {"2", "b"}}, "v[10] + v[2] + v.length", "ab3"},
      {nested(512), "let depth = 0; for (; Array.isArray(v); v = v[0]) ++depth; depth + v",
       "512core"},
      {nested(600), "for (; Array.isArray(v); v = v[0]) {} v", "null"},
  };
  for (const auto& one : kCases) {
    EXPECT_EQ(shown(one.value, one.code), one.shown) << one.code << one.value.description();
  }
  EXPECT_TRUE(values().fromPropertyList(nullptr).isNull());
}

TEST_F(ScriptValuesTest, EachListIsTheScriptsOwn) {
  const TaskList list = {Dictionary{{"name", "a"}}};
  auto first = values().fromList(list);
  first.property(0).setProperty("name", "changed");
  EXPECT_EQ(values().fromList(list).property(0).property("name").toString(), "a");
}

TEST_F(ScriptValuesTest, TheProgramGetsPropertyLists) {
  struct {
    const char* expression;
    std::optional<PropertyList> value;
  } const kCases[] = {
      {"undefined", std::nullopt},
      {"null", std::nullopt},
      {"() => 1", std::nullopt},
      {"Symbol('s')", std::nullopt},
      {"'Größe \\u{1F600}'", "Größe \U0001F600"},
      {"5", 5},
      {"-0", 0},
      {"5.5", 5.5},
      {"Math.pow(2, 53)", std::int64_t{1} << 53},
      {"-Math.pow(2, 63)", -0x1p63},
      {"1e300", 1e300},
      {"Infinity", std::numeric_limits<double>::infinity()},
      {"true", true},
      {"new Date(1709631000250)", Date::fromUnixSeconds(1709631000.25)},
      {"new Number(7)", 7},
      {"new String('x')", "x"},
      {"new Uint8Array([1, 2]).buffer", PropertyList::Data{1, 2}},
      {"new Uint16Array([1, 2, 3]).subarray(1, 2)", PropertyList::Data{2, 0}},
      {"[]", Array{}},
      {"[1, null, 'x', undefined]", Array{1, "", "x", ""}},
      {"{b: 1, a: null, c: [{}], d() {}}", Dictionary{{"b", 1}, {"c", Array{Dictionary{}}}}},
      {"Object.defineProperty({}, '__proto__', {value: 1, enumerable: true})",
       Dictionary{{"__proto__", 1}}},
      {"Object.create({inherited: 1})", Dictionary{}},
      {"(o => { o.self = o; o.list = [o, 1]; return o; })({})", Dictionary{{"list", Array{"", 1}}}},
      // The same object twice is no cycle.
      {"(o => [o, o])({a: 1})", Array{Dictionary{{"a", 1}}, Dictionary{{"a", 1}}}},
  };
  for (const auto& one : kCases) EXPECT_EQ(read(one.expression), one.value) << one.expression;
  const auto invalid = read("new Date(NaN)");
  ASSERT_TRUE(invalid && invalid->as<Date>());
  EXPECT_TRUE(std::isnan(invalid->as<Date>()->sinceReference.count()));
}

TEST_F(ScriptValuesTest, WhatIsTooDeepIsLeftOut) {
  world_.script("var deep = 'core'; for (let i = 0; i < 5000; ++i) deep = [deep];");
  const auto value = read("deep");
  ASSERT_TRUE(value);
  int levels = 0;
  const PropertyList* inner = &*value;
  for (; inner->as<Array>(); inner = &inner->as<Array>()->front()) ++levels;
  EXPECT_EQ(levels, 100);
  EXPECT_EQ(*inner, PropertyList(""));
}

TEST_F(ScriptValuesTest, WhatCannotBeCarriedThrows) {
  for (const char* expression :
       {"{get a() { throw new Error('no'); }}", "new Array(2000000)",
        // Each level holds the next one twice: 2^40 members from forty objects.
        "(() => { let o = {}; for (let i = 0; i < 40; ++i) o = [o, o]; return o; })()"}) {
    EXPECT_THROW(read(expression), ScriptError) << expression;
  }
}

}  // namespace
}  // namespace kv::test
