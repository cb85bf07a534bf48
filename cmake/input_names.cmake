# Generates the table of Linux input event names (types and codes) from the
# kernel's input-event-codes.h: one {class, value, "NAME"} row per numeric
# definition, in the header's order. Aliases defined by another name, the
# *_MAX and *_CNT bounds are left out.
# Usage: cmake -DHEADER=.../input-event-codes.h -DOUT=.../table.inc -P input_names.cmake
file(STRINGS "${HEADER}" lines REGEX "^#define[ \t]+(EV|SYN|KEY|BTN|REL|ABS|MSC|SW|LED|SND|REP)_")
set(out "// Generated from ${HEADER} by cmake/input_names.cmake.\n")
foreach(line IN LISTS lines)
  if(NOT line MATCHES "^#define[ \t]+(([A-Z]+)_[A-Z0-9_]+)[ \t]+(0x[0-9a-fA-F]+|[0-9]+)")
    continue()
  endif()
  set(name ${CMAKE_MATCH_1})
  set(prefix ${CMAKE_MATCH_2})
  set(value ${CMAKE_MATCH_3})
  if(name MATCHES "_(MAX|CNT)$" OR name STREQUAL "KEY_MIN_INTERESTING")
    continue()
  endif()
  # The class is the event type the code belongs to; "TYPE" marks the types.
  set(class_of_EV TYPE)
  set(class_of_SYN EV_SYN)
  set(class_of_KEY EV_KEY)
  set(class_of_BTN EV_KEY)
  set(class_of_REL EV_REL)
  set(class_of_ABS EV_ABS)
  set(class_of_MSC EV_MSC)
  set(class_of_SW EV_SW)
  set(class_of_LED EV_LED)
  set(class_of_SND EV_SND)
  set(class_of_REP EV_REP)
  string(APPEND out "{${class_of_${prefix}}, ${value}, \"${name}\"},\n")
endforeach()
file(WRITE "${OUT}.tmp" "${out}")
# Keep the old file (and its time stamp) when nothing changed.
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUT}.tmp")
