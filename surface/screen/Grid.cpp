#include "surface/screen/Grid.h"

#include <algorithm>

namespace Surface {

namespace {

// Takes the first character off a text in UTF-8.
char32_t TakeCharacter(std::string_view& text) {
    const auto first = static_cast<unsigned char>(text.front());
    text.remove_prefix(1);
    if (first < 0x80) {
        return first >= ' ' && first != 0x7F ? first : U'?';
    }
    const std::size_t tail = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    char32_t character = first & (0x3FU >> tail);
    for (std::size_t i = 0; i < tail; ++i) {
        if (first < 0xC0 || text.empty() || (static_cast<unsigned char>(text.front()) >> 6) != 2) {
            return U'?';
        }
        character = character << 6 | (static_cast<unsigned char>(text.front()) & 0x3FU);
        text.remove_prefix(1);
    }
    return character >= 0xA0 ? character : U'?';
}

} // namespace

Grid::Grid(int rows, int columns)
    : mRows(std::max(rows, 0)),
      mColumns(std::max(columns, 0)),
      mCells(static_cast<std::size_t>(mRows) * static_cast<std::size_t>(mColumns)) {}

void Grid::Put(int row, int column, std::u32string_view text, Style style) {
    for (const char32_t character : text) {
        if (row >= 0 && row < mRows && column >= 0 && column < mColumns) {
            mCells[Index(row, column)] = {character, style};
        }
        ++column;
    }
}

void Grid::Put(int row, int column, std::string_view text, Style style) {
    std::u32string characters;
    while (!text.empty()) {
        characters += TakeCharacter(text);
    }
    Put(row, column, characters, style);
}

std::string Grid::Row(int row) const {
    std::string text;
    std::size_t end = 0;
    for (int column = 0; column < mColumns; ++column) {
        const char32_t character = At(row, column).character;
        AppendUtf8(text, character);
        if (character != U' ') {
            end = text.size();
        }
    }
    text.resize(end);
    return text;
}

std::string Grid::Text() const {
    std::string text;
    for (int row = 0; row < mRows; ++row) {
        text += Row(row) + '\n';
    }
    return text;
}

void AppendUtf8(std::string& text, char32_t character) {
    const auto tail = [character](unsigned shift) {
        return static_cast<char>(0x80 | ((character >> shift) & 0x3F));
    };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0 | (character >> 6));
        text += tail(0);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0 | (character >> 12));
        text += tail(6);
        text += tail(0);
    } else {
        text += static_cast<char>(0xF0 | (character >> 18));
        text += tail(12);
        text += tail(6);
        text += tail(0);
    }
}

} // namespace Surface
