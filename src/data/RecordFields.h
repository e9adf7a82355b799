#pragma once
// One table of fields per record drives its JSON writing and reading, its binding and its row
// reading, so that adding a column is one edit.
//
// A field names its key (which is also its column), the record's getter, and a codec for the
// value. A field whose getter gives a std::optional is optional: an absent value is left out of
// the JSON, read from a missing key or null, and bound and read as NULL. Every other field is
// required. A record is built with its fields in table order, so a table lists them in the order
// of the record's constructor; a missing required key is reported in that order too.
//
// A codec for values of type Value has:
//   static void write(core::JsonWriter&, const Value&);
//   static Value read(core::JsonReader&, core::JsonValue);          // JsonDecodeFailure on a problem
//   static void bind(core::StatementBinder&, std::string_view key, const Value&);
//   static Value column(const core::DatabaseRow&, int index);       // DatabaseError on a problem

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "core/JsonReader.h"
#include "drovel/core/DrovelDBManager.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/notify/NotifyRecord.h"

namespace drovel::notify::fields {

using core::DatabaseRow;
using core::JsonReader;
using core::JsonValue;
using core::JsonWriter;
using core::StatementBinder;

// ---- codecs of plain values ----

struct Int64 {
    using Value = std::int64_t;
    static void write(JsonWriter& writer, Value value) { writer.value(value); }
    static Value read(JsonReader& reader, JsonValue value) { return reader.int64(value); }
    static void bind(StatementBinder& binder, std::string_view key, Value value) { binder.bind(key, value); }
    static Value column(const DatabaseRow& row, int index) { return row.get<Value>(index); }
};

struct Boolean {
    using Value = bool;
    static void write(JsonWriter& writer, Value value) { writer.value(value); }
    static Value read(JsonReader& reader, JsonValue value) { return reader.boolean(value); }
    static void bind(StatementBinder& binder, std::string_view key, Value value) { binder.bind(key, value); }
    static Value column(const DatabaseRow& row, int index) { return row.get<Value>(index); }
};

struct Text {
    using Value = std::string;
    static void write(JsonWriter& writer, const Value& value) { writer.value(value); }
    static Value read(JsonReader& reader, JsonValue value) { return std::string(reader.string(value)); }
    static void bind(StatementBinder& binder, std::string_view key, const Value& value) { binder.bind(key, value); }
    static Value column(const DatabaseRow& row, int index) { return row.text(index); }
};

// A beacon's major or minor number: 0 to 65535.
struct UInt16 {
    using Value = std::uint16_t;
    static void write(JsonWriter& writer, Value value) { writer.value(static_cast<unsigned>(value)); }
    static Value read(JsonReader& reader, JsonValue value) {
        std::int64_t number = reader.int64(value);
        if (number < 0 || number > 65535) reader.fail("expected an integer from 0 to 65535");
        return static_cast<Value>(number);
    }
    static void bind(StatementBinder& binder, std::string_view key, Value value) { binder.bind(key, value); }
    static Value column(const DatabaseRow& row, int index) { return row.get<Value>(index); }
};

// An object whose members are all strings. A repeated key keeps its last value.
template <class Map>
struct StringMap {
    using Value = Map;
    static void write(JsonWriter& writer, const Map& map) {
        writer.beginObject();
        for (const auto& [key, value] : map) writer.key(key).value(value);
        writer.endObject();
    }
    static Map read(JsonReader& reader, JsonValue value) {
        Map map;
        reader.object(value, [&](std::string_view key, JsonValue member) {
            map.insert_or_assign(std::string(key), std::string(reader.string(member)));
        });
        return map;
    }
};

// Throws core::DatabaseError "column '<name>': <message>".
[[noreturn]] void columnError(const DatabaseRow& row, int index, std::string_view message);

// A UUID in canonical text, in JSON and in its column.
struct UUIDText {
    using Value = UUID;
    static void write(JsonWriter& writer, const Value& value) { writer.value(value.uuidString()); }
    static Value read(JsonReader& reader, JsonValue value);
    static void bind(StatementBinder& binder, std::string_view key, const Value& value) {
        binder.bind(key, value.uuidString());
    }
    static Value column(const DatabaseRow& row, int index);
};

// An enumeration written as its raw value. Its column keeps the JSON text of that string, double
// quotes included ("beacon" with its quotes), as the records' first stored form did. Names gives
// Value, rawValue(Value), fromRawValue(text) -> std::optional<Value>, and `what` for messages
// ("region type").
template <class Names>
struct QuotedEnumeration {
    using Value = typename Names::Value;
    static void write(JsonWriter& writer, Value value) { writer.value(Names::rawValue(value)); }
    static Value read(JsonReader& reader, JsonValue value) {
        std::string_view raw = reader.string(value);
        auto decoded = Names::fromRawValue(raw);
        if (!decoded) reader.fail("unknown " + std::string(Names::what) + " \"" + std::string(raw) + "\"");
        return *decoded;
    }
    static void bind(StatementBinder& binder, std::string_view key, Value value) {
        binder.bind(key, "\"" + std::string(Names::rawValue(value)) + "\"");
    }
    static Value column(const DatabaseRow& row, int index) {
        std::string_view text = row.textView(index);
        if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
            if (auto decoded = Names::fromRawValue(text.substr(1, text.size() - 2))) return *decoded;
        }
        columnError(row, index, "unknown " + std::string(Names::what) + " " + std::string(text));
    }
};

// A value that is a JSON document of its own (an object in the record's JSON), stored in its
// column as that document's text. Json gives Value, write(JsonWriter&, const Value&) and
// read(JsonReader&, JsonValue).
template <class Json>
struct JsonTextColumn {
    using Value = typename Json::Value;
    static void write(JsonWriter& writer, const Value& value) { Json::write(writer, value); }
    static Value read(JsonReader& reader, JsonValue value) { return Json::read(reader, value); }
    static void bind(StatementBinder& binder, std::string_view key, const Value& value) {
        JsonWriter writer;
        Json::write(writer, value);
        binder.bind(key, writer.take());
    }
    static Value column(const DatabaseRow& row, int index) {
        auto decoded = core::decodeJson<Value>(row.textView(index), Json::read);
        if (!decoded) columnError(row, index, decoded.error()->description());
        return std::move(decoded).value();
    }
};

// ---- fields ----

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <auto Get, class Codec>
struct Field {
    std::string_view key;

    // What the record holds: Codec::Value, or an optional of it.
    template <class Record>
    using Stored = std::remove_cvref_t<std::invoke_result_t<decltype(Get), const Record&>>;
    // What a JSON walk collects before the record is built.
    template <class Record>
    using Slot = std::conditional_t<isOptional<Stored<Record>>, Stored<Record>, std::optional<Stored<Record>>>;

    template <class Record>
    void write(JsonWriter& writer, const Record& record) const {
        const auto& value = std::invoke(Get, record);
        if constexpr (isOptional<Stored<Record>>) {
            if (!value) return;
            writer.key(key);
            Codec::write(writer, *value);
        } else {
            writer.key(key);
            Codec::write(writer, value);
        }
    }

    template <class Record>
    void read(JsonReader& reader, JsonValue value, Slot<Record>& slot) const {
        if constexpr (isOptional<Stored<Record>>) {
            if (reader.isNull(value)) slot.reset();
            else slot = Codec::read(reader, value);
        } else {
            slot = Codec::read(reader, value);
        }
    }

    template <class Record>
    void checkPresent(JsonReader& reader, const Slot<Record>& slot) const {
        if constexpr (!isOptional<Stored<Record>>) {
            if (!slot) reader.missingKey(key);
        }
    }

    template <class Record>
    Stored<Record> take(Slot<Record>& slot) const {
        if constexpr (isOptional<Stored<Record>>) return std::move(slot);
        else return std::move(*slot);
    }

    template <class Record>
    void bind(StatementBinder& binder, const Record& record) const {
        const auto& value = std::invoke(Get, record);
        if constexpr (isOptional<Stored<Record>>) {
            if (value) Codec::bind(binder, key, *value);
            else binder.bind(key, nullptr);
        } else {
            Codec::bind(binder, key, value);
        }
    }

    template <class Record>
    Stored<Record> column(const DatabaseRow& row) const {
        int index = row.columnIndex(key);
        if constexpr (isOptional<Stored<Record>>) {
            if (row.isNull(index)) return std::nullopt;
        }
        return Codec::column(row, index);
    }
};

// ---- what a table of fields drives ----

// The record's members, without the braces of its object.
template <class Record, class... F>
void writeMembers(JsonWriter& writer, const Record& record, const std::tuple<F...>& fields) {
    std::apply([&](const F&... field) { (field.write(writer, record), ...); }, fields);
}

template <class Record, class... F>
void writeObject(JsonWriter& writer, const Record& record, const std::tuple<F...>& fields) {
    writer.beginObject();
    writeMembers(writer, record, fields);
    writer.endObject();
}

namespace detail {

template <class Record, class... F, std::size_t... I>
Record read(JsonReader& reader, JsonValue value, const std::tuple<F...>& fields, std::index_sequence<I...>) {
    std::tuple<typename F::template Slot<Record>...> slots;
    reader.object(value, [&](std::string_view key, JsonValue member) {
        // A repeated key keeps its last value; unknown keys are skipped.
        bool known = ((key == std::get<I>(fields).key &&
                       (std::get<I>(fields).template read<Record>(reader, member, std::get<I>(slots)), true)) ||
                      ...);
        if (!known) reader.skip(member);
    });
    (std::get<I>(fields).template checkPresent<Record>(reader, std::get<I>(slots)), ...);
    return Record{std::get<I>(fields).template take<Record>(std::get<I>(slots))...};
}

template <class Record, class... F, std::size_t... I>
Record fromRow(const DatabaseRow& row, const std::tuple<F...>& fields, std::index_sequence<I...>) {
    // A braced list reads the columns in table order.
    return Record{std::get<I>(fields).template column<Record>(row)...};
}

}  // namespace detail

// Reads a record's JSON object; aborts the document (JsonDecodeFailure) on the first problem.
template <class Record, class... F>
Record read(JsonReader& reader, JsonValue value, const std::tuple<F...>& fields) {
    return detail::read<Record>(reader, value, fields, std::index_sequence_for<F...>{});
}

template <class Record, class... F>
void bind(StatementBinder& binder, const Record& record, const std::tuple<F...>& fields) {
    std::apply([&](const F&... field) { (field.bind(binder, record), ...); }, fields);
}

// Throws core::DatabaseError naming the column when a value cannot be read back.
template <class Record, class... F>
Record fromRow(const DatabaseRow& row, const std::tuple<F...>& fields) {
    return detail::fromRow<Record>(row, fields, std::index_sequence_for<F...>{});
}

}  // namespace drovel::notify::fields
