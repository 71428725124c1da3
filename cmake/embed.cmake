# Writes a C++ source that defines a constant with the bytes of a file, and a NUL behind them:
#   cmake -DINPUT=FILE -DOUTPUT=SOURCE.cpp -DNAMESPACE=NAME -DSYMBOL=NAME -P embed.cmake
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
string(REGEX REPLACE "(................................................................................)" "\\1\n" bytes "${bytes}")
file(WRITE ${OUTPUT} "namespace ${NAMESPACE} {
extern const unsigned char ${SYMBOL}[];
const unsigned char ${SYMBOL}[] = {
${bytes}0};
}  // namespace ${NAMESPACE}
")
