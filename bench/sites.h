#pragma once

// The statement, SITE_COUNT times.
constexpr int SITE_COUNT = 64;
#define FOUR_SITES(...) \
  __VA_ARGS__;          \
  __VA_ARGS__;          \
  __VA_ARGS__;          \
  __VA_ARGS__
#define SIXTEEN_SITES(...) \
  FOUR_SITES(__VA_ARGS__); \
  FOUR_SITES(__VA_ARGS__); \
  FOUR_SITES(__VA_ARGS__); \
  FOUR_SITES(__VA_ARGS__)
#define SITES(...)            \
  SIXTEEN_SITES(__VA_ARGS__); \
  SIXTEEN_SITES(__VA_ARGS__); \
  SIXTEEN_SITES(__VA_ARGS__); \
  SIXTEEN_SITES(__VA_ARGS__)
