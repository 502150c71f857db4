#include "platform/event_record.h"

#include <ctime>

EventRecord::~EventRecord() {
  if (isInitialised) {
    pthread_cond_destroy(&condition);
    pthread_condattr_destroy(&attribute);
    pthread_mutex_destroy(&mutex);
  }
}

EventRecord::InitResult EventRecord::Init() noexcept {
  int error = pthread_condattr_init(&attribute);
  if (error == 0) {
    error = pthread_condattr_setclock(&attribute, CLOCK_MONOTONIC);
  }
  if (error != 0) {
    pthread_condattr_destroy(&attribute);
    return {InitStep::CLOCK, error};
  }
  error = pthread_cond_init(&condition, &attribute);
  if (error != 0) {
    pthread_condattr_destroy(&attribute);
    return {InitStep::CONDITION, error};
  }
  error = pthread_mutex_init(&mutex, nullptr);
  if (error != 0) {
    pthread_cond_destroy(&condition);
    pthread_condattr_destroy(&attribute);
    return {InitStep::MUTEX, error};
  }
  isInitialised = true;
  return {};
}
