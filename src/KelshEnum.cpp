// KelshEnum
