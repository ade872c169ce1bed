#pragma once
// Every result code the plug-in returns, with its constant's name and a
// one-line meaning. The exported constants are defined from this table, and
// the customscan tool prints codes from it, so the two cannot drift apart.
//
// X(name, value, meaning)

// The tables are aligned by hand, one entry per line.
// clang-format off
#define CUSTOM_SCAN_PLUGIN_RESULT_CODES(X)                                                        \
  X(CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND, -14000, "the \"command\" property is not set")        \
  X(CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS, -14001, "the \"class\" property is not set")            \
  X(CUSTOM_SCAN_ERROR_UNSPECIFIED_CODE, -14002, "the \"code\" property is not set")              \
  X(CUSTOM_SCAN_ERROR_UNSPECIFIED_FIELD, -14003, "the \"field\" property is not set")            \
  X(CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF, -14100, "the scanner's MIF text could not be parsed") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND, -14101, "no group of the requested class in the MIF text") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_KEYS_SPECIFIED, -14102, "the group has more than one \"key\" variable") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_IDS_SPECIFIED, -14103, "the group has more than one \"id\" variable") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_WRONG_KEY_VALUE, -14105, "the group's \"key\" lists no attribute id") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_UNSUPPORTED_GROUP_TYPE, -14106, "the group has both or neither of \"id\" and \"key\"") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_NOT_A_SCALAR_GROUP, -14107, "the group is not a scalar group (not returned)") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND, -14109, "the group has no attribute scopes")  \
  X(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND, -14110, "a key names an attribute id the group does not have") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED, -14111, "a table row has more or fewer values than the group has attributes") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND, -14112, "no attribute of that name in the class") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND, -14113, "no row with that key in the class")   \
  X(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_NOT_FOUND, -14114, "no table scope of the template group's class") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY, -14115, "two table rows have the same key (onDuplicatedKeys=error)") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE, -14116, "the \"output\" file could not be opened or read") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT, -14117, "the command line is empty or its quotes are misplaced") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH, -14118, "the command lies outside the custom scanner directory") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST, -14119, "the command does not exist or is not a regular file") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_IS_NOT_A_FILE, -14120, "the command is not a regular file (not returned)") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED, -14121, "this request's MIF failed to parse or build before; not run again") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS, -14200, "the command's process could not be created") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT, -14201, "the command's output stream could not be obtained") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED, -14202, "the command exited with a non-zero status") \
  X(CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND, -14203, "the \"path\" property is not set")

// Host SDK codes the plug-in also returns. X(name, value, meaning)
#define CUSTOM_SCAN_HOST_RESULT_CODES(X)                                                          \
  X(PLUGIN_ERROR_OUT_OF_MEMORY, -100, "storage could not be allocated")                          \
  X(PLUGIN_ERROR_INVALID_ARGUMENT, -101, "a null or invalid argument")                            \
  X(PLUGIN_ERROR_UNKNOWN_EXPRESSION, -10008, "no operand of that name (names are case-sensitive)")
// clang-format on
