#include "py_properties.h"

#include <vxcamkit/property.h>
#include <vxcamkit/shape.h>

#include <pybind11/stl.h>

namespace vxcam::py {

namespace python = pybind11;

namespace {

constexpr double kMillisecondsInSecond = 1000;

const char* kindOf(const Field& field)
{
    static const char* const names[] = {"whole",  "hex",    "real", "time",
                                        "switch", "choice", "text", "bytes"};
    return names[static_cast<int>(field.kind)];
}

// The least and the most that a number can be, of a time in seconds; None for what is none.
python::object boundsOf(const Field& field)
{
    switch (field.kind) {
    case FieldKind::Whole:
    case FieldKind::Hex:
        return python::make_tuple(static_cast<int64_t>(field.least),
                                  static_cast<int64_t>(field.most));
    case FieldKind::Real:
        return python::make_tuple(field.least, field.most);
    case FieldKind::Time:
        return python::make_tuple(field.least / kMillisecondsInSecond,
                                  field.most / kMillisecondsInSecond);
    default:
        return python::none();
    }
}

python::dict fieldOf(const Field& field)
{
    python::list choices;
    for (const Choice& choice : field.choices) {
        choices.append(choice.word);
    }
    python::dict result;
    result["name"] = field.name;
    result["kind"] = kindOf(field);
    result["range"] = boundsOf(field);
    result["unit"] = field.kind == FieldKind::Time ? "s" : field.unit;
    result["choices"] = python::tuple(choices);
    result["optional"] = field.absent.has_value();
    result["repeats"] = field.repeats;
    result["most_bytes"] = field.isBlock() ? static_cast<int64_t>(field.most) : 0;
    return result;
}

python::dict rowOf(const Property& property)
{
    python::list fields;
    for (const Field& field : property.shape.fields) {
        fields.append(fieldOf(field));
    }
    python::dict names;
    names["tango"] = property.tangoName();
    names["indi"] = property.indiName();
    names["fits"] = property.fitsName();
    names["alpaca"] = property.alpacaName();

    python::dict row;
    row["name"] = property.name;
    row["python_name"] = property.pythonName();
    row["help"] = property.help;
    row["fields"] = python::tuple(fields);
    row["groups"] = property.shape.groups;
    row["may_be_none"] = property.shape.mayBeNone;
    row["syntax"] = syntaxText(property.shape);
    row["range_text"] = rangeText(property.shape);
    row["group"] = nameOf(property.group);
    row["nature"] = nameOf(property.nature);
    row["cost"] = nameOf(property.cost);
    row["readable"] = property.isReadable();
    row["writable"] = property.isWritable();
    row["listed"] = property.isListed;
    row["key"] = property.key != nullptr ? python::object(python::str(property.key))
                                         : python::object(python::none());
    row["most_key"] = property.mostKey;
    row["names"] = names;
    return row;
}

} // namespace

void addProperties(python::module_& module)
{
    module.def("properties", [] {
        python::list rows;
        for (const Property& property : properties()) {
            rows.append(rowOf(property));
        }
        return rows;
    });
}

} // namespace vxcam::py
