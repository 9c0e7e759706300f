#include "rest/schemas.h"

namespace vxcam {

namespace {

// What is asked for. Unknown members are refused.
constexpr const char* kWishes = R"({
"Session": {"type": "object", "additionalProperties": false,
  "properties": {"token": {"type": "string"}}, "required": ["token"]},
"LeaseWish": {"type": "object", "additionalProperties": false, "properties": {
  "holder": {"type": "string", "minLength": 1, "maxLength": 100,
             "description": "who it is, for others; the client's address if it is left out"},
  "take": {"type": "boolean", "default": false, "description": "also from somebody else"}}},
"PropertyWish": {"type": "object", "additionalProperties": false,
  "properties": {"value": {}}, "required": ["value"]},
"SequenceWish": {"type": "object", "additionalProperties": false, "required": ["plan"],
  "properties": {
    "plan": {"type": "string", "description": "its name"},
    "folder": {"type": "string", "description": "for the frames, if not that of the plan"}}},
"Area": {"type": "object", "additionalProperties": false, "properties": {
  "column": {"type": "integer"}, "row": {"type": "integer"},
  "columns": {"type": "integer"}, "rows": {"type": "integer"}}},
"Seconds": {"anyOf": [
  {"type": "number", "minimum": 0, "maximum": 4294967.295},
  {"type": "string", "description": "with a unit: 500ms, 2s, 1min"}]},
"ExposureWish": {"type": "object", "additionalProperties": false,
  "description": "Whatever is left out is as the camera is set.",
  "properties": {
    "exposure": {"$ref": "#/components/schemas/Seconds"},
    "timeout": {"$ref": "#/components/schemas/Seconds"},
    "frames": {"type": "integer", "minimum": 0, "maximum": 32767, "default": 1,
               "description": "0: until it is aborted"},
    "bits": {"enum": [8, 16]},
    "type": {"enum": ["light", "dark", "bias", "flat"], "default": "light"},
    "kind": {"enum": ["area", "binned", "mask-binned", "as-set"]},
    "area": {"$ref": "#/components/schemas/Area"},
    "regions": {"type": "array", "items": {"$ref": "#/components/schemas/Area"}},
    "binning": {"type": "array", "items": {"type": "integer"}, "minItems": 2, "maxItems": 2,
                "description": "columns and rows in a bin"},
    "mode": {"type": "integer", "description": "flags, or the number of a table"},
    "when_full": {"enum": ["wait", "drop"],
                  "description": "what becomes of frames that nobody takes in time"}}},
"LiveWish": {"type": "object", "additionalProperties": false, "properties": {
  "rate": {"type": "number", "minimum": 0, "maximum": 1000,
           "description": "frames a second at most; 0: as they come"},
  "more": {"type": "integer", "minimum": 0, "maximum": 1000,
           "description": "so many more frames, and from now on none that was not asked for"},
  "beat": {"type": "number", "anyOf": [{"const": 0}, {"minimum": 0.1, "maximum": 60}],
           "description": "seconds: a LiveBeat where nothing else has come for that long; 0: none"},
  "part": {"type": "object", "additionalProperties": false,
    "description": "that part of each frame",
    "properties": {
      "column": {"type": "integer", "minimum": 0, "maximum": 65535},
      "row": {"type": "integer", "minimum": 0, "maximum": 65535},
      "columns": {"type": "integer", "minimum": 0, "maximum": 65535},
      "rows": {"type": "integer", "minimum": 0, "maximum": 65535},
      "step": {"type": "integer", "minimum": 1, "maximum": 64}}}}}
})";

// Of cameras, their properties, leases and events.
constexpr const char* kCameras = R"({
"Nothing": {"type": "object"},
"Document": {"type": "object"},
"Time": {"type": "string", "format": "date-time", "description": "UTC"},
"Camera": {"type": "object",
  "required": ["id", "target", "link", "open", "lease", "exposure", "sequence"],
  "properties": {
    "id": {"type": "integer"}, "target": {"type": "string"},
    "link": {"type": "boolean"}, "open": {"type": "boolean"},
    "trouble": {"$ref": "#/components/schemas/Trouble"},
    "address": {"type": "string"}, "name": {"type": "string"}, "serial": {"type": "string"},
    "version": {"type": "string"},
    "columns": {"type": "integer"}, "rows": {"type": "integer"},
    "sensor_temperature": {"type": ["number", "null"], "description": "degrees Celsius"},
    "board_temperature": {"type": ["number", "null"], "description": "degrees Celsius"},
    "heartbeat_age": {"type": ["number", "null"], "description": "seconds"},
    "heartbeat_interval": {"type": ["number", "null"],
                           "description": "seconds between the last two; null before them"},
    "lease": {"$ref": "#/components/schemas/Lease"},
    "exposure": {"type": ["integer", "null"], "description": "the one that runs"},
    "sequence": {"type": ["string", "null"], "description": "the plan that runs"}}},
"CameraList": {"type": "object", "required": ["cameras", "server"], "properties": {
  "cameras": {"type": "array", "items": {"$ref": "#/components/schemas/Camera"}},
  "server": {"type": "string"}}},
"Lease": {"type": "object", "required": ["held"], "properties": {
  "held": {"type": "boolean"}, "holder": {"type": "string"},
  "since": {"$ref": "#/components/schemas/Time"},
  "left": {"type": "number", "description": "seconds"}}},
"TakenLease": {"type": "object", "required": ["held", "holder", "since", "left", "key"],
  "properties": {
    "held": {"const": true}, "holder": {"type": "string"},
    "since": {"$ref": "#/components/schemas/Time"}, "left": {"type": "number"},
    "key": {"type": "string", "description": "for X-Lease"}}},
"PropertyTable": {"type": "object", "required": ["properties"], "properties": {
  "properties": {"type": "array", "items": {"$ref": "#/components/schemas/Property"}}}},
"Property": {"type": "object", "required": ["name", "readable", "writable", "fields"],
  "properties": {
    "name": {"type": "string"}, "label": {"type": "string"}, "help": {"type": "string"},
    "group": {"type": "string"}, "nature": {"type": "string"}, "cost": {"type": "string"},
    "readable": {"type": "boolean"}, "writable": {"type": "boolean"},
    "listed": {"type": "boolean"}, "syntax": {"type": "string"}, "range": {"type": "string"},
    "key": {"type": "object", "properties": {
      "name": {"type": "string"}, "most": {"type": "integer"}}},
    "groups": {"type": "integer"}, "may_be_none": {"type": "boolean"},
    "fields": {"type": "array", "items": {"$ref": "#/components/schemas/Field"}}}},
"Field": {"type": "object", "required": ["name", "kind"], "properties": {
  "name": {"type": "string"},
  "kind": {"enum": ["whole", "hex", "real", "time", "switch", "choice", "text", "bytes"]},
  "unit": {"type": "string"}, "least": {"type": "number"}, "most": {"type": "number"},
  "step": {"type": "number"}, "choices": {"type": "array", "items": {"type": "string"}},
  "may_be_left_out": {"const": true}, "repeats": {"type": "integer"}}},
"PropertyValue": {"type": "object", "required": ["name", "value", "text"], "properties": {
  "name": {"type": "string"}, "value": {}, "text": {"type": "string"}}},
"PropertyValues": {"type": "object", "description": "by their names",
  "additionalProperties": {"type": "object", "properties": {
    "value": {}, "text": {"type": "string"},
    "trouble": {"type": "string", "description": "why it cannot be read"}}}},
"Event": {"type": "object", "required": ["id", "utc", "event"], "additionalProperties": true,
  "description": "What else there is goes by the kind of the event.",
  "properties": {
    "id": {"type": "integer"}, "utc": {"$ref": "#/components/schemas/Time"},
    "event": {"type": "string"}}},
"LiveEvent": {"type": "object", "required": ["message", "event"], "properties": {
  "message": {"const": "event"}, "event": {"$ref": "#/components/schemas/Event"}}},
"LiveBeat": {"type": "object", "required": ["message"], "properties": {
  "message": {"const": "beat"}}},
"LiveError": {"type": "object", "required": ["message", "error"], "properties": {
  "message": {"const": "error"}, "error": {"$ref": "#/components/schemas/Trouble"}}}
})";

// Of frames, exposures, plans and sequences.
constexpr const char* kWork = R"({
"FrameTimes": {"type": "object", "properties": {
  "begin": {"$ref": "#/components/schemas/Time"},
  "middle": {"$ref": "#/components/schemas/Time"},
  "end": {"$ref": "#/components/schemas/Time"},
  "uncertainty": {"type": "number", "description": "seconds"}, "how": {"type": "string"},
  "synchronised": {"type": "boolean"},
  "clock_error": {"type": "number", "description": "seconds"}}},
"FrameFacts": {"type": "object",
  "required": ["number", "readout", "bits", "columns", "rows", "complete", "sum", "times"],
  "properties": {
    "number": {"type": "integer"}, "readout": {"type": "integer"},
    "kind": {"type": "string"}, "type": {"type": "string"}, "bits": {"type": "integer"},
    "columns": {"type": "integer"}, "rows": {"type": "integer"},
    "area": {"$ref": "#/components/schemas/Area"},
    "regions": {"type": "array", "items": {"$ref": "#/components/schemas/Area"},
      "description": "where several were read: stacked in the frame, in this order"},
    "binning": {"type": "array", "items": {"type": "integer"}},
    "exposure": {"type": "number", "description": "seconds"},
    "sensor_temperature": {"type": ["number", "null"]},
    "board_temperature": {"type": ["number", "null"]},
    "complete": {"type": "boolean"}, "packets": {"type": "integer"},
    "packets_missing": {"type": "integer"}, "packets_misplaced": {"type": "integer"},
    "packets_damaged": {"type": "integer"},
    "missing_rows": {"type": ["array", "null"], "items": {"type": "integer"}},
    "sum": {"type": "integer", "description": "of all pixels"},
    "dropped": {"type": "integer"},
    "times": {"$ref": "#/components/schemas/FrameTimes"},
    "complaints": {"type": "array", "items": {"type": "object", "properties": {
      "code": {"type": "integer"}, "sub_code": {"type": "integer"},
      "text": {"type": "string"}}}}}},
"LiveFrame": {"description": "FrameFacts, and how it came",
  "allOf": [{"$ref": "#/components/schemas/FrameFacts"}, {"type": "object",
    "required": ["message", "exposure_id", "missed", "age"], "properties": {
      "message": {"const": "frame"},
      "exposure_id": {"type": "integer", "description": "0: of a sequence"},
      "missed": {"type": "integer", "description": "frames that this client was too slow for"},
      "again": {"const": true, "description": "it came before, in another part"},
      "part": {"type": "object", "description": "what follows of it"},
      "age": {"type": "number", "description": "seconds behind its last packet"}}}]},
"Exposure": {"type": "object", "required": ["id", "state", "over", "plan", "came", "frames"],
  "properties": {
    "id": {"type": "integer"},
    "state": {"enum": ["starting", "running", "complete", "incomplete", "failed", "aborted"]},
    "over": {"type": "boolean"}, "begun": {"$ref": "#/components/schemas/Time"},
    "plan": {"$ref": "#/components/schemas/ExposureWish"},
    "came": {"type": "integer", "description": "frames so far"},
    "progress": {"type": "object", "description": "until it is over", "properties": {
      "phase": {"enum": ["waiting", "exposing", "exposed", "reading", "ended"]},
      "frame": {"type": "integer"}, "done": {"type": "number", "minimum": 0, "maximum": 1},
      "elapsed": {"type": "number", "description": "seconds"}}},
    "frames": {"type": "array", "description": "that are kept", "items": {"type": "object",
      "properties": {"number": {"type": "integer"}, "complete": {"type": "boolean"}}}},
    "error": {"anyOf": [{"$ref": "#/components/schemas/Trouble"}, {"type": "null"}]}}},
"ExposureList": {"type": "object", "required": ["exposures"], "properties": {
  "exposures": {"type": "array", "items": {"$ref": "#/components/schemas/Exposure"}}}},
"Plan": {"type": "object", "required": ["name", "bytes", "good"],
  "description": "What a plan comes to; error alone when it is not good.",
  "properties": {
    "name": {"type": "string"}, "bytes": {"type": "integer"}, "good": {"type": "boolean"},
    "error": {"$ref": "#/components/schemas/Trouble"},
    "frames": {"type": "integer"}, "hooks": {"type": "integer", "description": "commands"},
    "exposure": {"type": "number", "description": "seconds"},
    "duration": {"type": "number", "description": "seconds"},
    "needs_bytes": {"type": ["integer", "null"]}, "target": {"type": "string"},
    "folder": {"type": "string"},
    "sensor": {"type": ["array", "null"], "items": {"type": "integer"}},
    "journal": {"type": ["object", "null"], "properties": {
      "taken": {"type": "integer"}, "runs": {"type": "integer"},
      "complete": {"type": "boolean"}, "failures": {"type": "integer"},
      "error": {"$ref": "#/components/schemas/Trouble"}}}}},
"PlanList": {"type": "object", "required": ["hooks", "plans"], "properties": {
  "hooks": {"type": "boolean", "description": "whether commands of plans are run"},
  "plans": {"type": "array", "items": {"$ref": "#/components/schemas/Plan"}}}},
"Failure": {"type": "object", "properties": {
  "utc": {"$ref": "#/components/schemas/Time"}, "text": {"type": "string"}}},
"SequenceState": {"type": "object", "required": ["state", "over", "available"], "properties": {
  "state": {"enum": ["none", "running", "stopping", "complete", "stopped", "failed"]},
  "over": {"type": "boolean"},
  "available": {"type": "boolean", "description": "the server has plans"},
  "plan": {"type": "string"}, "folder": {"type": "string"},
  "begun": {"$ref": "#/components/schemas/Time"},
  "ended": {"anyOf": [{"$ref": "#/components/schemas/Time"}, {"type": "null"}]},
  "doing": {"type": "string"},
  "line": {"type": "integer", "description": "of the step in the plan; 0: none"},
  "frames": {"type": "integer"}, "taken": {"type": "integer"},
  "before": {"type": "integer", "description": "taken by earlier runs"},
  "done": {"type": "number", "minimum": 0, "maximum": 1, "description": "of the time"},
  "left": {"type": "number", "description": "seconds"},
  "file": {"type": ["string", "null"], "description": "the last one"},
  "failures": {"type": "integer"},
  "last_failures": {"type": "array", "items": {"$ref": "#/components/schemas/Failure"}},
  "error": {"anyOf": [{"$ref": "#/components/schemas/Trouble"}, {"type": "null"}]}}},
"SequenceReport": {"type": "object", "required": ["plan", "runs", "taken", "complete"],
  "properties": {
    "plan": {"type": "string"}, "folder": {"type": "string"}, "runs": {"type": "integer"},
    "frames": {"type": "integer"}, "taken": {"type": "integer"},
    "before": {"type": "integer"}, "complete": {"type": "boolean"},
    "files": {"type": "array", "items": {"type": "object", "properties": {
      "file": {"type": "string"}, "bytes": {"type": "integer"}}}},
    "failures": {"type": "array", "items": {"$ref": "#/components/schemas/Failure"}}}}
})";

constexpr const char* kErrors = R"({
"Trouble": {"type": "object", "required": ["kind", "text", "code", "sub_code"], "properties": {
  "kind": {"type": "string", "description": "for programs"},
  "text": {"type": "string", "description": "for people"},
  "code": {"type": "integer"}, "sub_code": {"type": "integer"},
  "mistakes": {"type": "array", "description": "of a plan",
    "items": {"type": "object", "properties": {
      "line": {"type": "integer", "description": "0: the plan as a whole"},
      "text": {"type": "string"}}}},
  "frame": {"$ref": "#/components/schemas/FrameFacts"}}},
"Error": {"type": "object", "required": ["error"], "properties": {
  "error": {"$ref": "#/components/schemas/Trouble"}}}
})";

} // namespace

Json schemas()
{
    Json all = Json::object();
    for (const char* const some : {kWishes, kCameras, kWork, kErrors}) {
        all.update(Json::parse(some));
    }
    return all;
}

} // namespace vxcam
