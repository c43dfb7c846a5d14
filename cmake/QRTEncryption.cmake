# Paging files can be encrypted where libcrypto is at hand for the target, in a version that gives a
# library a context of its own. Sets QRT_HAVE_ENCRYPTION.
set(QRT_WITH_ENCRYPTION AUTO CACHE STRING "Encryption of paging files, by libcrypto: AUTO, ON or OFF")
set_property(CACHE QRT_WITH_ENCRYPTION PROPERTY STRINGS AUTO ON OFF)

set(QRT_HAVE_ENCRYPTION OFF)
if(QRT_WITH_ENCRYPTION)
  find_package(OpenSSL 3.0 QUIET COMPONENTS Crypto)
  if(OPENSSL_FOUND)
    # What is found may be another target's: its headers are the same on all of them.
    include(CheckCXXSourceCompiles)
    set(CMAKE_REQUIRED_LIBRARIES OpenSSL::Crypto)
    check_cxx_source_compiles("#include <openssl/crypto.h>
      int main() { OSSL_LIB_CTX_free(OSSL_LIB_CTX_new()); }" QRT_LIBCRYPTO_LINKS)
    unset(CMAKE_REQUIRED_LIBRARIES)
    if(QRT_LIBCRYPTO_LINKS)
      set(QRT_HAVE_ENCRYPTION ON)
    endif()
  endif()
endif()

if(QRT_HAVE_ENCRYPTION)
  message(STATUS "Encryption of paging files by libcrypto ${OPENSSL_VERSION}")
elseif(QRT_WITH_ENCRYPTION STREQUAL AUTO)
  message(STATUS "Left out: encryption of paging files, for which this target has no libcrypto")
elseif(QRT_WITH_ENCRYPTION)
  message(FATAL_ERROR "QRT_WITH_ENCRYPTION is ${QRT_WITH_ENCRYPTION}, but this target has no libcrypto "
                      "from 3.0 on. Debian has it as libssl-dev.")
endif()
