#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "../own_directory.hpp"
#include "lmix_string_utilities.hpp"
#include "random_lines.hpp"

namespace {

using lmix_string_utilities::field_values;
using lmix_string_utilities::findfmt;
using lmix_string_utilities::findfmt_state;
using lmix_string_utilities::read_fields;
using lmix_string_utilities::text_source;

std::string joined_values(const field_values& values) {
  std::ostringstream text;
  for (int k = 0; k < values.size(); ++k) {
    const std::string word(values.a(k));
    const bool is_word = word.find_first_not_of("+-.0123456789eEdD ") != std::string::npos;
    text << (k > 0 ? "|" : "");
    is_word ? text << word : text << values.f(k);
  }
  return text.str();
}

// A line as it stands in a file, its letters, what findfmt makes of it and the values: worked out by hand.
struct good_row {
  std::string letters, text, descriptor, values;
};

TEST(Findfmt, LinesThatRead) {
  const std::vector<good_row> rows{
      {"IF3", "12  3.5 abc", "(i2,f5.0,tr1,a3)", "12|3.5|abc"},
      {"if3", "12  3.5 abc", "(i2,f5.0,tr1,a3)", "12|3.5|abc"},
      {"III", "1-2 3", "(i1,i2,i2)", "1|-2|3"},
      {"FF", "1.5E-2 3", "(f6.0,f2.0)", "0.015|3"},
      {"FF", "1.5-2.5", "(f3.0,f4.0)", "1.5|-2.5"},
      {"II", "12", "(i2,i1)", "12|0"},
      {"I", "   7", "(i1)", "7"},
      {"II", "1\t2", "(i1,i2)", "1|2"},
      {"II", "\t 1 2", "(i1,i2)", "1|2"},
      {"IIII", "5", "(i1,i1,i1,i1)", "5|0|0|0"},
      {"I5I", "5", "(i1,tr1,a5,i1)", "5|0|0"},
      {"F", "12 surplus !,;", "(f2.0)", "12"},
      {"I", "+5", "(i2)", "5"},
      {"F", "1E+5", "(f4.0)", "100000"},
      {"F", "1.0D-3", "(f6.0)", "0.001"},
      {"F", "1.5e2", "(f5.0)", "150"},
      {"F", "15d1", "(f4.0)", "150"},
      {"F", ".5", "(f2.0)", "0.5"},
      {"F", "-.5", "(f3.0)", "-0.5"},
      {"F", "123456", "(f6.0)", "123456"},
      {"I4F", "3 Fe3+ 0.25", "(i1,tr1,a4,f5.0)", "3|Fe3+|0.25"},
      {"44F", "Fe1  FE3+   0.25", "(a3,tr2,a4,f7.0)", "Fe1|FE3+|0.25"},
      {"A", "abcdefghij klm", "(a10)", "abcdefghij"},
      {"E", "abcdefghijklmn", "(a14)", "abcdefghijklmn"},
      {"5I", "abc 4", "(a3,i2)", "abc|4"},
      {"1I", "x5", "(a1,i1)", "x|5"},
      {"5I", "#comment\n\n ! another\nabc 4", "(a3,i2)", "abc|4"},
      {"II", "2147483647 -2147483648", "(i10,i12)", "2.14748e+09|-2.14748e+09"},
      {"II", "3 4 ! note", "(i1,i2)", "3|4"},
      {"III", "3 4 # note", "(i1,i2,i1)", "3|4|0"},
      {"II", "3 4!", "(i1,i2)", "3|4"},
      {"II", "3#4 ! 5", "(i1,i1)", "3|0"},
      {"I3", "3 a!b", "(i1,tr1,a3)", "3|a!b"},
      {"FFF", "1E-60 -0 0", "(f5.0,f3.0,f2.0)", "0|-0|0"},
      {"I", "1\r", "(i1)", "1"},
      {"FF", "1.5 2\r", "(f3.0,f2.0)", "1.5|2"},
      {"F", "-1.5E+3", "(f7.0)", "-1500"},
      {"II", "-3-4", "(i2,i2)", "-3|-4"},
      {"III", "1  -2+3", "(i1,i4,i2)", "1|-2|3"},
      {"II", "  12   34  ", "(i2,i5)", "12|34"},
      {"FF", "+.5 -5.", "(f3.0,f4.0)", "0.5|-5"},
      {"FFFF", "1 2", "(f1.0,f2.0,f1.0,f1.0)", "1|2|0|0"},
      {"FF", "1e3-2", "(f3.0,f2.0)", "1000|-2"},
      {"F", "1d-2", "(f4.0)", "0.01"},
      {"9I", "Fe2O3 17", "(a5,i3)", "Fe2O3|17"},
      {"4F4", "Mn1 0.5 MN+3", "(a3,f4.0,tr1,a4)", "Mn1|0.5|MN+3"},
      {"33", "ab cd", "(a2,tr1,a2)", "ab|cd"},
      {"D", "abcdefghijklm", "(a13)", "abcdefghijklm"},
  };
  for (const good_row& r : rows) {
    SCOPED_TRACE(r.letters + " on " + r.text);
    findfmt_state state;
    std::string aline, fmtstring;
    text_source literal = text_source::from_string(r.text);
    EXPECT_EQ(findfmt(state, literal, aline, r.letters, fmtstring, true), 0) << state.mess_findfmt.txt[0];
    EXPECT_EQ(fmtstring, r.descriptor);
    EXPECT_EQ(state.line_nb, literal.lines_taken());
    EXPECT_EQ(state.mess_findfmt.nlines, 0);

    field_values values;
    text_source source = text_source::from_string(r.text);
    EXPECT_EQ(read_fields(state, source, r.letters, values), 0);
    EXPECT_EQ(joined_values(values), r.values);
    EXPECT_EQ(values.line, aline);

    // The text of the descriptor, parsed and applied on its own, tells the same columns.
    const auto format = lmix_fixed_format::fixed_format::parse(fmtstring);
    ASSERT_TRUE(format);
    field_values by_format;
    EXPECT_EQ(read_line(*format, aline, by_format), -1);
    EXPECT_EQ(joined_values(by_format), r.values);
  }
}

struct bad_row {
  std::string letters, text;
  int ierr;
  std::string reason, pointer;
};

TEST(Findfmt, LinesThatAreRefused) {
  const std::string real_in_integer = " FindFMT: integer field found real !";
  const std::string unexpected = " FindFMT: begged dot, sign or 'e' character !";
  const std::string bad_character = " FindFMT: invalid character in a numeric field !";
  const std::string no_separator = " FindFMT: separator missing !";
  const std::string no_exponent = " FindFMT: incomplete E or D format !";
  const std::string no_number = " FindFMT: incomplete number !";
  const std::string unreadable = " FindFMT: data string, read error !";
  const std::vector<bad_row> rows{
      {"", "1", 1, " FindFMT: empty format descriptor (0 field) !", " ^"},
      {"I", "1E3", 2, unreadable, "  ^----"},
      {"II", "1 12E3", 2, unreadable, " ---^"},
      {"II", "1 -", 2, unreadable, " ---^"},
      {"I", "2147483648", 2, unreadable, "  ^----"},
      {"F", "1E39", 2, unreadable, "  ^----"},
      {"FF", "1 .", 2, unreadable, " ---^"},
      {"F", "1E", 2, unreadable, "  ^----"},
      {"F", "1Ee5", 2, unreadable, "  ^----"},
      {"F", "+-1", 2, unreadable, "  ^----"},
      {"II", "1 2.5", 3, real_in_integer, " ----^"},
      {"I", ".5", 3, real_in_integer, "  ^----"},
      {"F", "1.2.3", 4, unexpected, " ----^"},
      {"F", "1EE3", 4, unexpected, " ---^"},
      {"F", "1E--3", 4, unexpected, " ----^"},
      {"II", "1 E3", 5, " FindFMT: invalid character in an integer field !", " ---^"},
      {"Ix", "1 2", 6, " FindFMT: invalid field in format descriptor !", "  ^----"},
      {"I0", "1", 6, " FindFMT: invalid field in format descriptor !", "  ^----"},
      {"II", "12 x", 7, bad_character, " ----^"},
      {"II", "12a", 7, bad_character, " ---^"},
      {"FF", "1,2", 7, bad_character, " --^"},
      {"F", "nan", 7, bad_character, "  ^----"},
      {"33", "ABCDE", 10, no_separator, " ----^"},
      {"2I", "AB5", 10, no_separator, " ---^"},
      {"5I", "ABCDE5", 10, no_separator, " ------^"},
      {"F", "E5", 11, no_exponent, "  ^----"},
      {"FF", "1 d", 11, no_exponent, " ---^"},
      {"F", "1E-E", 11, no_exponent, " ----^"},
      {"FF", "1 - 2", 12, no_number, " ----^"},
      {"F", "- 2", 12, no_number, " --^"},
      {"F", "1E- 2", 12, no_number, " ----^"},
      {"F", "1e5e", 2, unreadable, "  ^----"},
      {"II", "1+-2", 2, unreadable, " --^"},
      {"I", "1.", 3, real_in_integer, " --^"},
      {"F", "1E+-3", 4, unexpected, " ----^"},
      {"I", "D1", 5, " FindFMT: invalid character in an integer field !", "  ^----"},
      {"Z", "1", 6, " FindFMT: invalid field in format descriptor !", " ^"},
      {"FF", "1 2,5", 7, bad_character, " ----^"},
      {"FF", "1 infinity", 7, bad_character, " ---^"},
      {"4I", "abcde 1", 10, no_separator, " -----^"},
  };
  for (const bad_row& r : rows) {
    SCOPED_TRACE(r.letters + " on " + r.text);
    findfmt_state state;
    init_findfmt(state, 40);
    field_values values;
    text_source source = text_source::from_string("! first\n" + r.text);
    EXPECT_EQ(read_fields(state, source, r.letters, values), r.ierr);
    EXPECT_EQ(state.ierr_fmt, r.ierr);
    EXPECT_EQ(values.size(), 0);
    const auto& mess = state.mess_findfmt;
    EXPECT_EQ(mess.nlines, 4);
    EXPECT_EQ(mess.txt[0], r.reason);
    EXPECT_EQ(mess.txt[1], r.letters.empty() ? " ''" : " '" + r.text + "'");
    EXPECT_EQ(mess.txt[2], r.pointer);
    const std::string line_number = r.letters.empty() ? "    41" : "    42";
    EXPECT_EQ(mess.txt[3], " => Please check your input file at line: " + line_number + " !");
    if (r.ierr == 2) continue;  // only the conversion sees it

    std::string aline, fmtstring;
    text_source literal = text_source::from_string(r.text);
    EXPECT_EQ(findfmt(state, literal, aline, r.letters, fmtstring), r.ierr);
    EXPECT_FALSE(fmtstring.ends_with(')') && fmtstring != "()");
  }
}

TEST(Findfmt, WithoutCmtlineACommentIsPartOfTheLine) {
  findfmt_state state;
  std::string aline, fmtstring;
  text_source source = text_source::from_string("3 4 ! note");
  EXPECT_EQ(findfmt(state, source, aline, "III", fmtstring), 7);
  EXPECT_EQ(state.mess_findfmt.txt[2], " -----^");
  source.rewind();
  EXPECT_EQ(findfmt(state, source, aline, "III", fmtstring, true), 0);
  EXPECT_EQ(aline, "3 4");
}

TEST(Findfmt, TheEndOfTheFileIsNotFatal) {
  findfmt_state state;
  field_values values;
  text_source source = text_source::from_string("! only a comment\n", 1);
  EXPECT_EQ(read_fields(state, source, "I", values), -1);
  EXPECT_EQ(state.line_nb, 2);
  EXPECT_EQ(state.mess_findfmt.nlines, 1);
  EXPECT_EQ(state.mess_findfmt.txt[0], " => Non FATAL End of file !,  logical unit:    1");
}

TEST(Findfmt, AFileThatCannotBeReadGivesTheSystemsNumber) {
  findfmt_state state;
  field_values values;
  text_source source = text_source::from_file(own_directory() + "no_such_file");
  EXPECT_EQ(read_fields(state, source, "I", values), -102);
  EXPECT_EQ(state.mess_findfmt.txt[0], " FindFMT: data line RUNTIME read error nber:   2");
  state.ierr_fmt = 13;
  findfmt_err(state, "line", 2);
  EXPECT_EQ(state.mess_findfmt.txt[0], " FMT decode error number: 13");
  for (const int told_elsewhere : {0, -1}) {
    findfmt_state quiet;
    quiet.ierr_fmt = told_elsewhere;
    findfmt_err(quiet, "line", 2);
    EXPECT_EQ(quiet.mess_findfmt.nlines, 0);
  }
}

TEST(Findfmt, ALineInHand) {
  findfmt_state state;
  std::string aline = " 1\t2 ! x", fmtstring;
  EXPECT_EQ(findfmt(state, aline, "II", fmtstring), 0);
  EXPECT_EQ(fmtstring, "(i2,i2)");
  EXPECT_EQ(state.line_nb, 1);
  for (const char* text : {"", "   ", "\t1"}) {
    aline = text;
    EXPECT_EQ(findfmt(state, aline, "II", fmtstring), 8);
    EXPECT_EQ(fmtstring, "(");
    EXPECT_EQ(state.mess_findfmt.nlines, 0);
  }
  aline = "";
  EXPECT_EQ(findfmt(state, aline, "5I", fmtstring), 0);
  EXPECT_EQ(fmtstring, "(a5,i1)");
  aline = "abc\t";
  EXPECT_EQ(findfmt(state, aline, "33", fmtstring), 8);
  EXPECT_EQ(state.mess_findfmt.txt[0], " FindFMT: 0 character in current field !");

  field_values values;
  EXPECT_EQ(read_fields(state, "  5 0.25", "if", values), 0);
  EXPECT_EQ(values.i(0), 5);
  EXPECT_EQ(values.f(1), 0.25f);
  EXPECT_EQ(read_fields(state, "", "i", values), 8);
  EXPECT_EQ(state.mess_findfmt.nlines, 4);
}

TEST(Findfmt, DescriptorsHaveALongestLength) {
  findfmt_state state;
  state.max_fmtstring = 10;
  std::string fmtstring, aline = "1 2 3";
  EXPECT_EQ(findfmt(state, aline, "III", fmtstring), 0);
  EXPECT_EQ(fmtstring, "(i1,i2,i2)");
  aline = "1 2 33";
  EXPECT_EQ(findfmt(state, aline, "FFF", fmtstring), 9);
  EXPECT_EQ(state.mess_findfmt.txt[0], " FindFMT: format string length exceeded !");
  state.max_fmtstring = 4096;
  aline = "1" + std::string(1000, ' ') + "2";
  EXPECT_EQ(findfmt(state, aline, "II", fmtstring), 9);
}

TEST(Findfmt, LongLinesLoseTheQuotesAndThePointerStaysTrue) {
  findfmt_state state;
  std::string fmtstring, aline = "1 2 x " + std::string(300, '7');
  EXPECT_EQ(findfmt(state, aline, "III", fmtstring), 7);
  EXPECT_EQ(state.mess_findfmt.txt[1].size(), 132u);
  EXPECT_EQ(state.mess_findfmt.txt[1].substr(0, 7), " 1 2 x ");
  EXPECT_EQ(state.mess_findfmt.txt[2], " ----^");
  aline = "x" + std::string(300, '7');
  EXPECT_EQ(findfmt(state, aline, "I", fmtstring), 7);
  EXPECT_EQ(state.mess_findfmt.txt[2], " ^");
  aline = std::string(300, '7') + "x";
  EXPECT_EQ(findfmt(state, aline, "I", fmtstring), 7);
  EXPECT_LE(state.mess_findfmt.txt[2].size(), 132u);
}

TEST(Findfmt, EveryLineReadIsEchoed) {
  findfmt_state state;
  std::ostringstream echo;
  state.idebug = &echo;
  field_values values;
  text_source source = text_source::from_string("! note\n\n  1\t2 ! end\n");
  EXPECT_EQ(read_fields(state, source, "II", values), 0);
  EXPECT_EQ(echo.str(), "! note\n\n1 2\n");
}

TEST(Findfmt, GarbageNeitherCrashesNorReadsAsNumbersThatAreNotFinite) {
  const std::string characters = "0123456789 . -+EeDd\tabc!#\r\"'\\(),;\xff\x01    ";
  const std::string letters = "IIIFFF123459ABCDEifx";
  std::mt19937 random(20240607);
  findfmt_state state;
  field_values values;
  int accepted = 0;
  for (int i = random_lines(); i > 0; --i) {
    const std::string fields = random_text(random, letters, 6), line = random_text(random, characters, 30);
    text_source source = text_source::from_string(line);
    std::string aline = line, fmtstring;
    const int in_hand = findfmt(state, aline, fields, fmtstring);
    ASSERT_TRUE(in_hand >= 0 && in_hand <= 12);
    if (read_fields(state, source, fields, values) != 0) {
      ASSERT_EQ(values.size(), 0);
      continue;
    }
    ++accepted;
    ASSERT_EQ(values.size(), static_cast<int>(fields.size())) << fields << " on " << line;
    for (int k = 0; k < values.size(); ++k) ASSERT_TRUE(std::isfinite(values.f(k)));
  }
  EXPECT_GT(accepted, random_lines() / 100);
}

}  // namespace
