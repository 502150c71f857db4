#pragma once

#include <array>
#include <cstdint>

// The requests that the module EM_TALVOR answers: the name of the opcode, its value, the word for
// it on the command line of em_host, and what it asks. This is the only list: the module, em_host
// with its help and its completion, the fuzzer and the tests of the documents use it. These tests
// require that the manual page has the word, and docs/interface.md the question, exactly as here.
// Opcodes above 0x340F are not traced.
#define EM_TALVOR_REQUESTS(REQUEST)                                    \
  REQUEST(OC_QUERY_TALVOR, 0x3400, "query", "is the collector there?") \
  REQUEST(OC_CREATE_ARCHIVE, 0x3401, "create", "create an archive")    \
  REQUEST(OC_TRANSFER_ARCHIVE, 0x3402, "transfer", "transfer the archive to the BMC")

// Values of "OC", the operation code of a command.
#define EM_TALVOR_OPCODE(name, value, word, question) name = (value),
enum Opcode : uint32_t { EM_TALVOR_REQUESTS(EM_TALVOR_OPCODE) };
#undef EM_TALVOR_OPCODE

constexpr uint32_t OC_HTI_FILE_TRANSFER = 0xF052;  // an opcode of HTI, which transfers a file

// A request as people name it.
struct RequestName {
  Opcode opcode;
  const char* word;
  const char* question;
};

#define EM_TALVOR_REQUEST_NAME(name, value, word, question) RequestName{name, word, question},
inline constexpr std::array REQUEST_NAMES = {EM_TALVOR_REQUESTS(EM_TALVOR_REQUEST_NAME)};
#undef EM_TALVOR_REQUEST_NAME
