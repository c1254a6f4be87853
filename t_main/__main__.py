
if __name__ == '__main__':
    pass
    print("SUCCESS")
    pass
