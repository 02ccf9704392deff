# What makes a fault in memory stop the program instead of serving an attacker. Spelled out, since
# not every compiler has it on by itself; the test packaging.hardening looks for it in what was
# built. The sanitizers do without: they see the same faults earlier, and some of it blinds them.

target_compile_options(kv_flags INTERFACE
  -fstack-protector-strong -fstack-clash-protection
  # Checked copies need the sizes that only the optimiser works out.
  "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
# Before all other flags, since the last one counts: what touches Qt has to be compiled with -fPIC,
# and asks for it itself.
set(CMAKE_CXX_FLAGS "-fPIE ${CMAKE_CXX_FLAGS}")
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64)$")
  target_compile_options(kv_flags INTERFACE -fcf-protection)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  target_compile_options(kv_flags INTERFACE -mbranch-protection=standard)
endif()
target_link_options(kv_flags INTERFACE
  LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack
  $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>)
