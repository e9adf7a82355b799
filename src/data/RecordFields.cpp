#include "data/RecordFields.h"

namespace drovel::notify::fields {

void columnError(const DatabaseRow& row, int index, std::string_view message) {
    throw core::DatabaseError("column '" + std::string(row.columnName(index)) + "': " + std::string(message));
}

UUID UUIDText::read(JsonReader& reader, JsonValue value) {
    auto uuid = UUID::fromString(reader.string(value));
    if (!uuid) reader.fail("expected a UUID in the form XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX");
    return *uuid;
}

UUID UUIDText::column(const DatabaseRow& row, int index) {
    auto uuid = UUID::fromString(row.textView(index));
    if (!uuid) columnError(row, index, "expected a UUID");
    return *uuid;
}

}  // namespace drovel::notify::fields
