// Value types: look-up by storage and name, defaults, conversion between kinds, export as
// text, and text hints.
#include "foundation/foundation_fixture.h"

#include <vexor/value.h>

#include "foundation/value_type.h"

namespace vx::value {
namespace {

Value make(const char *name) {
    const ValueType *type = find(name);
    EXPECT_NE(type, nullptr) << name;
    return Value(*type);
}

std::string text_of(const Value &v) {
    char buf[512];
    v.export_text(buf, sizeof buf);
    return buf;
}

ResultCode code_of(void (*fn)(Value &), Value &v) {
    try {
        fn(v);
    } catch (const Failure &f) {
        return f.code();
    }
    return rc::ok;
}

TEST(ValueTypes, StorageCodesAndNamesFindTheirTypesWhoseNewValuesHoldTheirDefault) {
    const std::pair<int, const char *> by_storage[] = {{VX_STORE_FLOAT, "float"},
                                                       {VX_STORE_INT, "integer"},
                                                       {VX_STORE_TEXT, "string"},
                                                       {VX_STORE_MATRIX, "matrix4"},
                                                       {17, "float"}};  // unknown storage
    for (const auto &[storage, name] : by_storage) {
        EXPECT_STREQ(ValueTypeName(ExoTypeLookup(storage, nullptr)), name) << storage;
    }
    EXPECT_EQ(ValueTypeKind(ExoTypeLookup(VX_STORE_OBJECT, "gradient")), VX_VALUE_OBJECT);
    EXPECT_EQ(ExoTypeLookup(VX_STORE_OBJECT, "nosuchtype"), nullptr);
    EXPECT_EQ(ValueTypeKind(nullptr), -1);
    EXPECT_EQ(ValueTypeName(nullptr), nullptr);

    EXPECT_EQ(make("float").get_float(), 0.0);
    EXPECT_EQ(make("integer").get_int(), 0);
    EXPECT_EQ(text_of(make("string")), "");
    Value m = make("matrix4");
    for (std::size_t i = 0; i < 16; ++i) EXPECT_EQ(m.get_matrix()[i], i % 5 == 0 ? 1.0 : 0.0);
    EXPECT_EQ(make("gradient").get_object(), nullptr);
}

TEST(ValueTypes, NumbersConvertBetweenKinds) {
    Value i = make("integer");
    i.set_float(2.5);
    EXPECT_EQ(i.get_int(), 3);
    i.set_float(-2.5);
    EXPECT_EQ(i.get_int(), -3);
    i.set_float(1e12);
    EXPECT_EQ(i.get_int(), INT32_MAX);
    i.set_text("41.6");
    EXPECT_EQ(i.get_int(), 42);

    Value f = make("float");
    f.set_int(-7);
    EXPECT_EQ(f.get_float(), -7.0);
    f.set_float(0.1);
    EXPECT_EQ(f.get_int(), 0);
    f.set_text("not a number");
    EXPECT_EQ(f.get_float(), 0.0);

    Value t = make("string");
    t.set_float(0.1);
    EXPECT_EQ(text_of(t), "0.1");
    EXPECT_EQ(t.get_float(), 0.1);
    t.set_int(-12);
    EXPECT_EQ(text_of(t), "-12");
}

TEST(ValueTypes, MatricesAndObjectsRefuseOtherKindsAndExportWritesWholeTextCutToFit) {
    Value m = make("matrix4");
    Value o = make("custom");
    EXPECT_EQ(code_of([](Value &v) { v.set_float(1.0); }, m), rc::type_mismatch);
    EXPECT_EQ(code_of([](Value &v) { v.set_int(1); }, o), rc::type_mismatch);
    EXPECT_EQ(code_of([](Value &v) { (void)v.get_float(); }, o), rc::type_mismatch);
    EXPECT_EQ(code_of([](Value &v) { v.set_object(&v); }, m), rc::type_mismatch);
    Value f = make("float");
    EXPECT_EQ(code_of([](Value &v) { (void)v.get_matrix(); }, f), rc::type_mismatch);
    int thing = 0;
    o.set_object(&thing);
    EXPECT_EQ(o.get_object(), &thing);
    EXPECT_EQ(text_of(o), "object");

    // Export writes whole text and cuts it to fit.
    Matrix4 values{};
    for (std::size_t i = 0; i < 16; ++i) values[i] = static_cast<double>(i) / 2;
    m.set_matrix(values);
    EXPECT_EQ(text_of(m), "0 0.5 1 1.5 2 2.5 3 3.5 4 4.5 5 5.5 6 6.5 7 7.5");
    f.set_float(1234.5);
    char small[4];
    EXPECT_EQ(f.export_text(small, sizeof small), 6u);
    EXPECT_STREQ(small, "123");
    EXPECT_EQ(f.export_text(nullptr, 0), 6u);
}

TEST(TextHints, EncodeNamesKnownValuesAndWritesOthersInDecimal) {
    const TextHint shapes[] = {{0, "box"}, {3, "sphere"}, {-1, "none"}, {0, nullptr}};
    const TextHint *boolean = TextHintBoolean();
    struct Encode {
        int value;
        const TextHint *hints;
        const char *text;
    };
    const Encode encodes[] = {{3, shapes, "sphere"}, {-1, shapes, "none"}, {-42, shapes, "-42"},
                              {5, nullptr, "5"},     {0, boolean, "off"},  {1, boolean, "on"}};
    char buf[16];
    for (const Encode &e : encodes) {
        EXPECT_EQ(TextHintEncode(e.value, e.hints, buf, sizeof buf), std::strlen(e.text));
        EXPECT_STREQ(buf, e.text);
    }
    EXPECT_EQ(boolean[2].text, nullptr);
    EXPECT_EQ(TextHintEncode(3, shapes, buf, 3), 6u);
    EXPECT_STREQ(buf, "sp");

    int v = 99;
    EXPECT_EQ(TextHintDecode("sphere", shapes, &v), 1);
    EXPECT_EQ(v, 3);
    EXPECT_EQ(TextHintDecode("17", shapes, &v), 1);
    EXPECT_EQ(v, 17);
    for (const char *refused : {"Sphere", "", "3x"}) {
        EXPECT_EQ(TextHintDecode(refused, shapes, &v), 0) << refused;
    }
    EXPECT_EQ(v, 17);
}

}  // namespace
}  // namespace vx::value
