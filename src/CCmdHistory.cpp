// CCmdHistory
