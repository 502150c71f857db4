// How EM_TALVOR answers requests: at once, or with a job for the worker.

#include <new>

#include "archive_module/em_talvor.h"
#include "base/forced_unwind.h"
#include "frame/opcode.h"
#include "frame/status.h"
#include "trace/debug_client.h"

namespace {

constexpr uint32_t REQUEST_TRACE_LEVEL = 2;
constexpr int32_t TASK_LEVEL = 0;

// The family of opcodes whose requests and answers are traced.
bool IsInFamily(uint32_t opcode) { return (opcode & ~0xFU) == OC_QUERY_TALVOR; }

uint32_t ReadOpcode(const SipJson& request) {
  return request.GetCmdUInt(request.m_nCmdIndex, "OC", 0);
}

// An exception here deliberately ends the process: the request could not be answered any more.
void AnswerException(SipJson& request) noexcept { request.SetCmdUInt("ST", STATUS_EXCEPTION); }

void TraceException(const SipJson& request) {
  const uint32_t index = request.m_nCmdIndex;
  DEBUG_TRACE_NOTHROW(
      1,
      "\nEM_TALVOR (Request) : ## EXCEPTION in ModuleRequest()! CABID %04d: OpCode 0x%04X-0x%04X ObjId 0x%04X Status 0x%02X",
      static_cast<int32_t>(request.GetCmdUInt(index, "CA", 0)), request.GetCmdUInt(index, "OC", 0),
      request.GetCmdUInt(index, "OE", 0), request.GetCmdUInt(index, "OI", 0),
      request.GetCmdUInt(index, "ST", STATUS_PENDING));
}

void TraceCreation(bool isAvailable) {
  if (isAvailable) {
    DEBUG_TRACE(
        2,
        "\nEM_TALVOR (Request) : -> Initiate Talvor archive creation task, may take several minutes (queue this request)");
  } else {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR (Request) : ## ERROR! Talvor is not available - cannot generate Talvor archive");
  }
}

void TraceTransfer(bool isAvailable) {
  if (isAvailable) {
    DEBUG_TRACE(2, "\nEM_TALVOR (Request) : -> Initiate Talvor archive transfer to BMC task");
  } else {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR (Request) : ## ERROR! Talvor is not available - cannot transfer archive to BMC");
  }
}

}  // namespace

uint32_t EM_TALVOR::ModuleRequest(SipJson& request) {
  const uint32_t opcode = ReadOpcode(request);
  uint32_t exceptionResult = 0;  // becomes 1 after the cabinet test
  try {
    if (IsInFamily(opcode)) {
      TraceRequest(request, REQUEST_TRACE_LEVEL);
    }
    const bool isForServerCabinet = IsForServerCabinet(request);
    exceptionResult = 1;
    if (!isForServerCabinet) {
      SetCmdStatus(request, STATUS_OTHER_CABINET);
      DEBUG_TRACE(4, "\nEM_TALVOR (Request) : Request not for server cabinet -> refused");
      return 0;  // deliberately without the trace of an answer
    }
    const bool isKnown = AnswerCommand(request, opcode);
    if (IsInFamily(opcode)) {
      TraceReturn(request, REQUEST_TRACE_LEVEL);
    }
    return isKnown ? 1 : 0;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    AnswerException(request);
    TraceException(request);
    return exceptionResult;
  }
}

// False for an unknown command, which gets no status. An opcode of the list without a case here
// does not compile.
bool EM_TALVOR::AnswerCommand(SipJson& request, uint32_t opcode) {
  const bool isAvailable = m_bTalvorAvailable;
  switch (static_cast<Opcode>(opcode)) {
    case OC_QUERY_TALVOR:
      DEBUG_TRACE(2, "\nEM_TALVOR (Request) : -> Talvor is%s available", isAvailable ? "" : " NOT");
      request.SetCmdUInt("DA", isAvailable ? 1 : 0);
      SetCmdStatus(request, STATUS_DONE);
      return true;
    case OC_CREATE_ARCHIVE:
      TraceCreation(isAvailable);
      QueueJob(request, isAvailable);
      return true;
    case OC_TRANSFER_ARCHIVE:
      TraceTransfer(isAvailable);
      QueueJob(request, isAvailable);
      return true;
  }
  return false;
}

// A job is answered "pending" whatever the serializer did with it: a task that it refused gets no
// final answer, deliberately; the serializer traces the refusal.
void EM_TALVOR::QueueJob(SipJson& request, bool isAvailable) {
  if (!isAvailable) {
    SetCmdStatus(request, STATUS_NOT_AVAILABLE);
    return;
  }
  InsertTask(request, TASK_LEVEL, nullptr);
  SetCmdStatus(request, STATUS_PENDING);
}

void EM_TALVOR::OnTaskExecution(SipJson& request, int32_t /*level*/) {
  const uint32_t opcode = ReadOpcode(request);
  if (!RunJob(request, opcode)) {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR           : ## ERROR! Unhandled OpCode 0x%04X to be executed in task - fix this!",
        opcode);
    return;
  }
  TraceReturn(request, REQUEST_TRACE_LEVEL);
  const CFlagGuard handsBack(m_bHandsBack);
  ReturnRequest(request);
}

// False when there is no such job. A job that runs out of memory is answered as failed.
bool EM_TALVOR::RunJob(SipJson& request, uint32_t opcode) {
  try {
    switch (opcode) {
      case OC_CREATE_ARCHIVE:
        CreateArchive(request);
        return true;
      case OC_TRANSFER_ARCHIVE:
        TransferArchive(request);
        return true;
      default:
        return false;
    }
  } catch (const std::bad_alloc&) {
    FinishJob(request, STATUS_FAILED);
    return true;
  }
}
