// FileDigest
