# The lens signing key pair. A release build passes its own keys:
#   -DGLINT_LENS_PRIVATE_KEY=/path/key.pem (for the server and the packer)
#   -DGLINT_LENS_PUBLIC_KEY_B64=<160 base64 characters> (embedded in the app)
# Otherwise a development pair is generated once into the build tree; no
# private key is ever committed.
set(GLINT_LENS_PRIVATE_KEY "" CACHE FILEPATH "PEM file of the P-384 lens signing key")
set(GLINT_LENS_PUBLIC_KEY_B64 "" CACHE STRING "Base64 DER public key that verifies lens signatures")

find_program(OPENSSL_PROGRAM openssl REQUIRED)
set(_dev_key ${CMAKE_BINARY_DIR}/keys/dev-lens-key.pem)
if(NOT GLINT_LENS_PRIVATE_KEY)
  if(NOT EXISTS ${_dev_key})
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/keys)
    execute_process(COMMAND ${OPENSSL_PROGRAM} ecparam -name secp384r1 -genkey -noout -out ${_dev_key}
                    RESULT_VARIABLE _rc)
    if(NOT _rc EQUAL 0)
      message(FATAL_ERROR "Could not generate the development lens key")
    endif()
    message(STATUS "Generated development lens signing key ${_dev_key}")
  endif()
  set(GLINT_LENS_PRIVATE_KEY_IN_USE ${_dev_key})
else()
  set(GLINT_LENS_PRIVATE_KEY_IN_USE ${GLINT_LENS_PRIVATE_KEY})
endif()

if(NOT GLINT_LENS_PUBLIC_KEY_B64)
  execute_process(COMMAND ${OPENSSL_PROGRAM} ec -in ${GLINT_LENS_PRIVATE_KEY_IN_USE} -pubout -outform DER
                  OUTPUT_FILE ${CMAKE_BINARY_DIR}/keys/lens-public.der ERROR_QUIET RESULT_VARIABLE _rc)
  execute_process(COMMAND ${OPENSSL_PROGRAM} base64 -A -in ${CMAKE_BINARY_DIR}/keys/lens-public.der
                  OUTPUT_VARIABLE GLINT_LENS_PUBLIC_KEY_B64 OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
string(LENGTH "${GLINT_LENS_PUBLIC_KEY_B64}" _len)
if(NOT _len EQUAL 160)
  message(FATAL_ERROR "The lens verification key must be 160 base64 characters, got ${_len}")
endif()
