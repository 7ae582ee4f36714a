// Computes the character tables from ICU and writes their bytes, which the build embeds in every
// program (character_tables_data.cpp.in).
//   generate_character_tables OUTPUT
#include <cstdio>
#include <fstream>

#include "text/character_tables.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: generate_character_tables OUTPUT\n");
    return 2;
  }
  std::unique_ptr<ulvek::CharacterTables> tables = ulvek::computeCharacterTables();
  std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(tables.get()), sizeof(ulvek::CharacterTables));
  out.close();
  if (!out) {
    std::fprintf(stderr, "generate_character_tables: cannot write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
